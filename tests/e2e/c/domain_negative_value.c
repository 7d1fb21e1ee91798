int {-1} x;
