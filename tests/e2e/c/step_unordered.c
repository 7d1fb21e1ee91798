int {5:2:1} x;
