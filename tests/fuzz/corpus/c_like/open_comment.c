int x; /* never closed
