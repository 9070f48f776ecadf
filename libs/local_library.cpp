#include "libs/local_library.h"

#include "util/text/bytes.h"

int LocalLibrary::call(const char* name, const char* command, TextBuffer reply, Deferral*) {
  return binding.call_cmd(as_bytes(name), as_bytes(command), as_bytes(reply.data), reply.size);
}
