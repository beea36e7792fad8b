// empty.cpp: libFuzzer brings the main program.
