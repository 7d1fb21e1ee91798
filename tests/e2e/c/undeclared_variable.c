int x;
x < y;
