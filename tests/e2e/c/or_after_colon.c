int {0:1} a, b, c, d;
a ? b : c || d;
a == 0;
b == 1;
