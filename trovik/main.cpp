#include "trovik/Program.h"

int main(int count, char** arguments) {
  return trovik::runProgram(count, arguments);
}
