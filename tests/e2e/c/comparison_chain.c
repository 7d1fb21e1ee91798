int x, y;
x < y < 3;
