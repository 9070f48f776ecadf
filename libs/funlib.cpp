#include "libs/funlib.h"

#include <dlfcn.h>

#include <cstring>
#include <string>

#include "libs/function_list.h"
#include "libs/guarded_buffer.h"
#include "util/log/log.h"
#include "util/os/program_path.h"
#include "util/text/conversion.h"
#include "util/text/format.h"
#include "util/text/messages.h"

namespace {

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

Gbk cannot_load(std::string_view path, std::string_view why) {
  return Gbk(format_gbk(messages::kCannotLoad, gbk_of(path)).bytes() + gbk_of(why).bytes());
}

void LibraryCloser::operator()(void* handle) const { dlclose(handle); }

Funlib::Funlib(const char* path) { copy_text(libname, path); }

Funlib::~Funlib() {
  if (!inited) return;
  try {
    p_uninit();
  } catch (...) {
    log_error("%s: uninit threw an exception\n", shown(libname).c_str());
  }
}

bool Funlib::init(char* errtext, std::size_t errtext_size) {
  const TextBuffer reason(errtext, errtext_size);
  if (!open(reason) || !find_entry_points(reason) || !read_function_list(reason)) return false;
  char* parameter = library_buffer.prepare(QUORVEL_PARAMETER_SIZE);
  if (p_init(parameter) == 0) return fail_with(reason, messages::kLibraryInitFailed);
  inited = true;
  return true;
}

bool Funlib::open(TextBuffer errtext) {
  if (libname[0] == '\0') return fail_with(errtext, messages::kNoLibraryName);
  if (handle) return fail_with(errtext, format_gbk(messages::kAlreadyLoaded, gbk_of(libname)));
  char path[sizeof libname];
  const bool as_it_stands = libname[0] == '/' || libname[0] == '.';
  if (as_it_stands ? !copy_text(path, libname) : !getfilepath(path, libname, sizeof path))
    return fail_with(errtext, format_gbk(messages::kPathTooLong, gbk_of(libname)));
  handle.reset(dlopen(path, RTLD_NOW));
  if (handle) return true;
  const char* loader_text = dlerror();
  return fail_with(errtext, cannot_load(libname, loader_text != nullptr ? loader_text : ""));
}

bool Funlib::find_entry_points(TextBuffer errtext) {
  int missing = -1;
  if (!find_entry(handle.get(), "getversion", p_getversion)) missing = 3;
  if (!find_entry(handle.get(), "scommand", p_scommand)) missing = 2;
  if (!find_entry(handle.get(), "uninit", p_uninit)) missing = 1;
  if (!find_entry(handle.get(), "init", p_init)) missing = 0;
  if (missing < 0) return true;
  handle.reset();
  return fail_with(errtext, format_gbk(messages::kMissingEntryPoint, gbk_of(libname), missing));
}

bool Funlib::read_function_list(TextBuffer errtext) {
  char* reason = error_buffer.prepare(QUORVEL_ERROR_SIZE);
  char* answer = library_buffer.prepare(QUORVEL_ANSWER_SIZE);
  if (p_getversion(verinfo, answer, verextra, reason) == 0)
    return fail_with(errtext, GbkView({reason, strnlen(reason, QUORVEL_ERROR_SIZE)}));
  const std::string_view digits(answer, strnlen(answer, QUORVEL_ANSWER_SIZE));
  const std::string list = decode_function_list(digits, sizeof funclist - 1);
  list.copy(funclist, list.size());
  return true;
}

int Funlib::call_cmd(const unsigned char* fid, const unsigned char* command, unsigned char* reply,
                     std::size_t reply_size) {
  const TextBuffer out(reinterpret_cast<char*>(reply), reply_size);
  if (!inited) {
    write_failure(out, messages::kNotInitialised);
    return 0;
  }
  const char* name = reinterpret_cast<const char*>(fid);
  char* answer = library_buffer.prepare(reply_size);
  const int result = p_scommand(name, reinterpret_cast<const char*>(command), answer);
  const std::string_view text(answer, strnlen(answer, reply_size));
  if (library_buffer.intact() && copy_text(out, text)) return result;
  log_error("%s: the reply to \"%s\" runs past its %zu bytes and was dropped\n",
            shown(libname).c_str(), shown(name).c_str(), reply_size);
  write_failure(out, messages::kReplyTooLong);
  return 0;
}
