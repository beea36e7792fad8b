#include <cstdio>
int main(int c, char** v) {
  std::puts(v[c - 1]);
}
