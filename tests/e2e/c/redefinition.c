int x;
bool y, x;
