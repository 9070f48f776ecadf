#include "libs/funlib.h"

#include <dlfcn.h>
#include <libwebsockets.h>

#include <cstring>
#include <string>

#include "libs/function_list.h"
#include "libs/guarded_buffer.h"
#include "util/messages.h"
#include "util/program_path.h"

namespace {

/// Sizes in bytes of the buffers that the entry points are promised.
constexpr std::size_t kInitParameterSize = 1024;
constexpr std::size_t kVersionAnswerSize = 1024;
constexpr std::size_t kVersionErrorSize = 1024;

/// Lent to one library call at a time. In static storage, where an overrun reaches neither the
/// stack nor the heap.
GuardedBuffer library_buffer;
GuardedBuffer error_buffer;

template <typename Entry>
bool find_entry(void* handle, const char* name, Entry& entry) {
  entry = reinterpret_cast<Entry>(dlsym(handle, name));
  return entry != nullptr;
}

}  // namespace

void LibraryCloser::operator()(void* handle) const { dlclose(handle); }

Funlib::Funlib(const char* path) { copy_text(libname, sizeof libname, path); }

Funlib::~Funlib() {
  if (!inited) return;
  try {
    p_uninit();
  } catch (...) {
    lwsl_err("%s: uninit threw an exception\n", libname);
  }
}

bool Funlib::init(char* errtext, std::size_t errtext_size) {
  if (!open(errtext, errtext_size) || !find_entry_points(errtext, errtext_size) ||
      !read_function_list(errtext, errtext_size))
    return false;
  char* parameter = library_buffer.prepare(kInitParameterSize);
  if (p_init(parameter) == 0) return fail_with(errtext, errtext_size, messages::kLibraryInitFailed);
  inited = true;
  return true;
}

bool Funlib::open(char* errtext, std::size_t errtext_size) {
  if (libname[0] == '\0') return fail_with(errtext, errtext_size, messages::kNoLibraryName);
  if (handle)
    return fail_with(errtext, errtext_size, format_text(messages::kAlreadyLoaded, libname));
  char path[sizeof libname];
  const bool as_it_stands = libname[0] == '/' || libname[0] == '.';
  if (as_it_stands ? !copy_text(path, sizeof path, libname)
                   : !getfilepath(path, libname, sizeof path))
    return fail_with(errtext, errtext_size, format_text(messages::kPathTooLong, libname));
  handle.reset(dlopen(path, RTLD_NOW));
  if (handle) return true;
  const char* loader_text = dlerror();
  return fail_with(errtext, errtext_size,
                   format_text(messages::kCannotLoad, libname) + (loader_text ? loader_text : ""));
}

bool Funlib::find_entry_points(char* errtext, std::size_t errtext_size) {
  int missing = -1;
  if (!find_entry(handle.get(), "getversion", p_getversion)) missing = 3;
  if (!find_entry(handle.get(), "scommand", p_scommand)) missing = 2;
  if (!find_entry(handle.get(), "uninit", p_uninit)) missing = 1;
  if (!find_entry(handle.get(), "init", p_init)) missing = 0;
  if (missing < 0) return true;
  handle.reset();
  return fail_with(errtext, errtext_size,
                   format_text(messages::kMissingEntryPoint, libname, missing));
}

bool Funlib::read_function_list(char* errtext, std::size_t errtext_size) {
  char* reason = error_buffer.prepare(kVersionErrorSize);
  char* answer = library_buffer.prepare(kVersionAnswerSize);
  if (p_getversion(verinfo, answer, verextra, reason) == 0)
    return fail_with(errtext, errtext_size, {reason, strnlen(reason, kVersionErrorSize)});
  const std::string_view digits(answer, strnlen(answer, kVersionAnswerSize));
  const std::string list = decode_function_list(digits, sizeof funclist - 1);
  list.copy(funclist, list.size());
  return true;
}

int Funlib::call_cmd(const unsigned char* fid, const unsigned char* command, unsigned char* reply,
                     std::size_t reply_size) {
  char* out = reinterpret_cast<char*>(reply);
  if (!inited) {
    write_failure(out, reply_size, messages::kNotInitialised);
    return 0;
  }
  const char* name = reinterpret_cast<const char*>(fid);
  char* answer = library_buffer.prepare(reply_size);
  const int result = p_scommand(name, reinterpret_cast<const char*>(command), answer);
  const std::string_view text(answer, strnlen(answer, reply_size));
  if (library_buffer.intact() && copy_text(out, reply_size, text)) return result;
  lwsl_err("%s: the reply to \"%s\" runs past its %zu bytes and was dropped\n", libname, name,
           reply_size);
  write_failure(out, reply_size, messages::kReplyTooLong);
  return 0;
}
