int {} x;
