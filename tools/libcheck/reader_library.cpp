#include "tools/libcheck/reader_library.h"

#include <dlfcn.h>

#include <chrono>
#include <cstring>
#include <exception>
#include <initializer_list>

#include "tools/libcheck/child.h"
#include "tools/libcheck/text.h"
#include "util/language/language.h"
#include "util/text/format.h"

namespace {

/// Makes one call into the library. Returns the milliseconds that it took.
double call(const char* name, const std::function<void()>& entry) {
  const char* const catch_inside = translated("Catch every exception inside the entry point.");
  begin_call(name);
  const auto start = std::chrono::steady_clock::now();
  try {
    entry();
  } catch (const std::exception& escaped) {
    throw ContractBreak(
        format_text(translated("let an exception out: %s"), readable(escaped.what()).c_str()),
        catch_inside);
  } catch (...) {
    throw ContractBreak(translated("let an exception out"), catch_inside);
  }
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
      .count();
}

void check_unwritten(const FencedBuffer& buffer, const std::string& text) {
  if (buffer.text() != text)
    throw ContractBreak(format_text(translated("wrote into %s"), buffer.name()),
                        translated("Work on a copy: what the service hands over is const."));
}

void check_starts(std::initializer_list<const FencedBuffer*> buffers) {
  for (const FencedBuffer* buffer : buffers)
    if (!buffer->start_intact())
      throw ContractBreak(
          format_text(translated("wrote before the start of %s"), buffer->name()),
          translated("Look for a negative index or a pointer that runs backwards."));
}

std::string cure_for_loader(const std::string& words) {
  if (words.find("undefined symbol") != std::string::npos)
    return translated("Link with -Wl,--no-undefined and name the library that has the symbol.");
  if (words.find("ELF") != std::string::npos || words.find("too short") != std::string::npos)
    return translated("Build a shared object for this machine's architecture.");
  if (words.find("cannot open shared object") != std::string::npos)
    return translated("Install what it is linked with (ldd lists it), or link that statically.");
  return "";
}

}  // namespace

void ReaderLibrary::Closer::operator()(void* library) const { dlclose(library); }

ReaderLibrary::~ReaderLibrary() {
  if (std::uncaught_exceptions() > 0)
    static_cast<void>(handle.release());
  else
    unload();
}

ReaderLibrary::ReaderLibrary(const std::string& path) {
  load_time = call("dlopen", [&] { handle.reset(dlopen(path.c_str(), RTLD_NOW)); });
  if (!handle) {
    const char* error = dlerror();
    const std::string words = error != nullptr ? error : translated("no reason given");
    throw ContractBreak(format_text(translated("failed: %s"), readable_request(words).c_str()),
                        cure_for_loader(words));
  }
}

void ReaderLibrary::find_entry_points() {
  find("init", p_init);
  find("uninit", p_uninit);
  find("scommand", p_scommand);
  find("getversion", p_getversion);
}

template <typename Entry>
void ReaderLibrary::find(const char* name, Entry& entry) const {
  entry = reinterpret_cast<Entry>(dlsym(handle.get(), name));
  if (entry != nullptr) return;
  begin_call("dlsym");
  throw ContractBreak(
      format_text(translated("finds no entry point %s"), name),
      translated("Define it with QUORVEL_EXPORT, in C++ after including quorvel_reader.h."));
}

VersionRecord ReaderLibrary::getversion() {
  const FencedBuffer answer(translated("getversion's answer buffer"), QUORVEL_ANSWER_SIZE);
  const FencedBuffer error(translated("getversion's error buffer"), QUORVEL_ERROR_SIZE);
  VersionRecord record = {};
  record.milliseconds = call("getversion", [&] {
    record.returned = p_getversion(verinfo.data(), answer.data(), verextra.data(), error.data());
  });
  check_starts({&answer, &error, &verinfo, &verextra});
  std::memcpy(record.answer, answer.data(), sizeof record.answer);
  std::memcpy(record.error, error.data(), sizeof record.error);
  return record;
}

double ReaderLibrary::init() {
  const FencedBuffer parameter(translated("init's parameter buffer"), QUORVEL_PARAMETER_SIZE);
  std::int32_t returned = 0;
  const double time = call("init", [&] { returned = p_init(parameter.data()); });
  check_starts({&parameter});
  if (returned == 0)
    throw ContractBreak(
        translated("returned 0: the service goes on without this library"),
        translated("Start without the hardware too, and let scommand report what is missing."));
  return time;
}

void ReaderLibrary::uninit() { call("uninit", p_uninit); }

CommandRecord ReaderLibrary::scommand(const std::string& name, const std::string& command) {
  const FencedBuffer name_buffer(translated("the function name"), name);
  const FencedBuffer command_buffer(translated("the command text"), command);
  const FencedBuffer reply(translated("the reply buffer"), QUORVEL_REPLY_SIZE);
  CommandRecord record = {};
  record.milliseconds = call("scommand", [&] {
    record.returned = p_scommand(name_buffer.data(), command_buffer.data(), reply.data());
  });
  check_starts({&name_buffer, &command_buffer, &reply});
  check_unwritten(name_buffer, name);
  check_unwritten(command_buffer, command);
  std::memcpy(record.reply, reply.data(), sizeof record.reply);
  return record;
}

void ReaderLibrary::unload() {
  if (!handle) return;
  begin_call("dlclose");
  handle.reset();
}
