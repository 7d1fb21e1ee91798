int {1:2:6} x;
