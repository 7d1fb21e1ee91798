int {3, 32} x;
