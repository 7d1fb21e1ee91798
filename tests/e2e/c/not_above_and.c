int {0:2} a, b;
!a && b;
