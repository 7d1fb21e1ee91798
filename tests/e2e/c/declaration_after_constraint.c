int x;
x == 1;
int y;
