int {1:2:5} x;
int {1:5} y;
x != 3;
y > x + 2;
