int {1:0:3} x;
