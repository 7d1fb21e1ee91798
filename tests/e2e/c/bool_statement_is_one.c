bool b;
b;
