// Six queens on a 6x6 board: q_i is the column of the queen in row i.
int {0:5} q0, q1, q2, q3, q4, q5;

// No two queens share a column...
all_diff(q0, q1, q2, q3, q4, q5);

// ...nor a diagonal: rows i < j differ by j - i, so must their columns.
// abs(x - y) is the distance whatever the order of x and y.
abs(q0 - q1) != 1; abs(q0 - q2) != 2; abs(q0 - q3) != 3; abs(q0 - q4) != 4; abs(q0 - q5) != 5;
abs(q1 - q2) != 1; abs(q1 - q3) != 2; abs(q1 - q4) != 3; abs(q1 - q5) != 4;
abs(q2 - q3) != 1; abs(q2 - q4) != 2; abs(q2 - q5) != 3;
abs(q3 - q4) != 1; abs(q3 - q5) != 2;
abs(q4 - q5) != 1;
