#pragma once

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>

/// How a child process ended.
struct ChildEnd {
  bool finished = false;  ///< it did all it had to
  // Otherwise:
  std::string call;    ///< the call into the library that was running, or ran last
  std::string reason;  ///< what happened, a sentence whose subject is the call
  std::string cure;
  // In any case:
  std::string printed;  ///< the first bytes that it wrote on its standard streams
  int orphans = 0;      ///< processes in the background that it left running; they have been ended
};

/// A broken rule that a child process notices itself; it ends the child.
class ContractBreak : public std::runtime_error {
 public:
  ContractBreak(const std::string& reason, std::string advice)
      : std::runtime_error(reason), cure(std::move(advice)) {}
  const std::string& advice() const { return cure; }

 private:
  std::string cure;
};

/// How a child process leaves after its work: at once, or as a program does, through exit(), which
/// runs the library's destructors.
enum class Leave { kAtOnce, kThroughExit };

/// Runs `body` in a child process, which is ended when one call into the library takes longer than
/// `limit`. The child hands over results in memory shared beforehand. Throws std::system_error when
/// no child can be started.
ChildEnd run_in_child(std::chrono::milliseconds limit, const std::function<void()>& body,
                      Leave leave = Leave::kAtOnce);

/// In a child: starts the clock for a call into the library and names it for the parent. The name
/// stays in force until the next.
void begin_call(const char* name);
