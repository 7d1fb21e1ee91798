int {5:1} x;
