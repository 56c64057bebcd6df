#include "trovik/Program.h"
#include "trovik/machine/Interrupts.h"

int main(int count, char** arguments) {
  const int code = trovik::runProgram(count, arguments);
  trovik::endAsAsked();
  return code;
}
