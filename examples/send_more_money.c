// SEND + MORE = MONEY, column by column with carries c1..c4. Every value of
// an expression must stay within 0..31, so the last carry is a variable of its
// own rather than 10 * M.
int {0:9} S, E, N, D, M, O, R, Y;
bool c1, c2, c3, c4;

all_diff(S, E, N, D, M, O, R, Y);
S != 0; M != 0;              // no leading zeros

D + E == Y + 10 * c1;
c1 + N + R == E + 10 * c2;
c2 + E + O == N + 10 * c3;
c3 + S + M == O + 10 * c4;
c4 == M;
