#include "Services/dispatcher/program_directory.h"

#include "util/reply.h"

char curPath0[kProgramPathSize];

bool getfilepath() {
  curPath0[0] = '\0';
  return copy_text(curPath0, sizeof curPath0, program_directory());
}
