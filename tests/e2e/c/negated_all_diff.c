int {0:1} a, b, c;
!all_diff(a, b, c);
