#include "Services/dispatcher/program_directory.h"

#include "util/text/text_buffer.h"

char curPath0[kProgramPathSize];

bool getfilepath() {
  curPath0[0] = '\0';
  return copy_text(curPath0, program_directory());
}
