int {0:4} a, b, c;
bool k;
all_diff(a, b, c);
!overlap(a, 2, b, 2);
sub_interval(b, c, 1, 3);
!sub_interval(c, a, 0, 2, 1);
k == (a < b);
