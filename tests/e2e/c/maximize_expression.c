int {0:6} x, y;
maximize(max(x, y) * 2 + min(x, y) / 2);
x + y <= 7;
x % 3 == 1;
