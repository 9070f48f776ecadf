#include "libs/local_library.h"

int LocalLibrary::call(const char* name, const char* command, TextBuffer reply, Deferral*) {
  const auto bytes = [](const char* text) { return reinterpret_cast<const unsigned char*>(text); };
  return binding.call_cmd(bytes(name), bytes(command), reinterpret_cast<unsigned char*>(reply.data),
                          reply.size);
}
