int {1:5} x, y; unsigned z; minimize(x + y); x != y; z == x * 2 || z == 3;
