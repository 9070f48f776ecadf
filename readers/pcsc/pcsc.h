#pragma once

#include <winscard.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "readers/common/failure.h"

// Readers and cards through the system's PC/SC service, pcscd. Failures of the service, of a reader
// or of a card are thrown as PcscError. Only the functions that take a limit have one: pcscd gives
// none to a command that a card does not answer, nor to connecting to a reader that another program
// has locked.

/// A PC/SC call that failed.
class PcscError : public std::runtime_error {
 public:
  PcscError(LONG result, const char* call);

  /// Whether the connection to pcscd is lost; only a new context helps.
  bool service_lost() const;
  /// Whether another program has reset the card.
  bool card_reset() const { return code == SCARD_W_RESET_CARD; }
  /// What the page is told.
  Failure failure() const;

 private:
  LONG code;
};

struct ReaderState {
  std::string name;
  DWORD flags = 0;  ///< SCARD_STATE_*
  std::string atr;

  bool card_present() const { return (flags & SCARD_STATE_PRESENT) != 0; }
  bool card_usable() const { return card_present() && (flags & SCARD_STATE_MUTE) == 0; }
};

/// A connection to pcscd.
class Context {
 public:
  Context();
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;
  ~Context() { SCardReleaseContext(handle); }

  /// All readers as they are now; none is no failure. When a program ends while a card owes it an
  /// answer, pcscd may from then on hold an empty reader for one with a mute card, or miss the next
  /// card. So until a card has answered on this connection, readers that are said to be empty or to
  /// have a mute card are asked themselves, by a reset, as far as no program has them for itself.
  std::vector<ReaderState> readers() const;
  /// Notes that a card has answered.
  void trust_states() { states_are_true = true; }
  /// Waits until a reader has been plugged in, at most `limit_ms`.
  void wait_for_reader(DWORD limit_ms) const;
  /// Waits until the reader's state is another than this one, at most `limit_ms`, and returns it.
  ReaderState wait_for_change(ReaderState state, DWORD limit_ms) const;

  SCARDCONTEXT raw() const { return handle; }

 private:
  std::vector<ReaderState> states() const;
  ReaderState ask(const ReaderState& reader) const;

  SCARDCONTEXT handle = 0;
  bool states_are_true = false;
};

/// A card that nobody else can talk to as long as the object lives. Leaves the card powered and as
/// it is; one that has stopped answering is reset, by which pcscd also notices that it has gone.
class Card {
 public:
  /// Connects. Throws Failure (reader_in_use, card_mute) besides.
  Card(Context& pcscd, ReaderState reader_state);
  Card(const Card&) = delete;
  Card& operator=(const Card&) = delete;
  ~Card();

  /// The answer to one command, at least its two status bytes. Throws Failure (card_removed,
  /// unreadable) when the card ends in it.
  std::string transmit(std::string_view command);
  /// Ends with the failure that fits a card which has stopped answering: removed or unreadable.
  [[noreturn]] void give_up();

  /// Whether the transport carries either data or an expected length in a command, not both.
  bool is_t0() const { return protocol == SCARD_PROTOCOL_T0; }

 private:
  void begin();

  Context& context;
  const ReaderState reader;
  SCARDHANDLE handle = 0;
  DWORD protocol = 0;
  DWORD disposition = SCARD_LEAVE_CARD;
};
