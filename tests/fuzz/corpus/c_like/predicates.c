int {0:3} a, b, c;
bool k;
all_diff(a, b, c);
!overlap(a, 2, b, 1);
sub_interval(a, b, 0, 3);
!sub_interval(b, c, 1, 2, 1);
k ? a < b : b < a;
