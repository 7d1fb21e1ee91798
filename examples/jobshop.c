// Two jobs of two tasks on two machines; the smallest makespan.
// Job A: 3 units on machine 1, then 2 on machine 2.
// Job B: 2 units on machine 2, then 4 on machine 1.
int {0:20} a1, a2, b2, b1;
int {0:20} makespan;

minimize(makespan);

a1 + 3 <= a2;                // the tasks of a job in order
b2 + 2 <= b1;
!overlap(a1, 3, b1, 4);      // one task at a time on machine 1
!overlap(a2, 2, b2, 2);      // and on machine 2
a2 + 2 <= makespan;
b1 + 4 <= makespan;
