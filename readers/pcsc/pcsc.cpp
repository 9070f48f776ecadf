#include "readers/pcsc/pcsc.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

namespace {

constexpr DWORD kOthersLimitMs = 1000;   // for a program that has the reader for itself
constexpr DWORD kRemovalLimitMs = 1500;  // within which pcscd has noticed that a card is gone
// Within which it has noticed one that has come.
constexpr int kNoticeLooks = 20;
constexpr std::chrono::milliseconds kNoticePause(50);
constexpr int kCountShift = 16;  // to the number of cards that came and went, in a reader's flags

struct Translation {
  LONG code;
  const FailureKind& kind;
};

constexpr Translation kTranslations[] = {
    {SCARD_E_NO_SERVICE, failures::kServiceDown},
    {SCARD_E_SERVICE_STOPPED, failures::kServiceDown},
    {SCARD_F_COMM_ERROR, failures::kServiceDown},
    {SCARD_E_INVALID_HANDLE, failures::kServiceDown},
    {SCARD_W_SECURITY_VIOLATION, failures::kServiceDenied},
    {SCARD_E_NO_READERS_AVAILABLE, failures::kNoReader},
    {SCARD_E_READER_UNAVAILABLE, failures::kNoReader},
    {SCARD_E_UNKNOWN_READER, failures::kNoReader},
    {SCARD_E_NO_SMARTCARD, failures::kNoCard},
    {SCARD_W_REMOVED_CARD, failures::kCardRemoved},
    {SCARD_E_SHARING_VIOLATION, failures::kReaderInUse},
    {SCARD_W_RESET_CARD, failures::kReaderInUse},
    {SCARD_W_UNRESPONSIVE_CARD, failures::kCardMute},
    {SCARD_W_UNPOWERED_CARD, failures::kCardMute},
    {SCARD_W_UNSUPPORTED_CARD, failures::kUnreadable},
    {SCARD_E_PROTO_MISMATCH, failures::kUnreadable},
};

std::string in_hex(LONG code) {
  char text[sizeof "80100000"];
  std::snprintf(text, sizeof text, "%08lX", static_cast<unsigned long>(code) & 0xFFFFFFFF);
  return text;
}

/// Every call goes through here.
void check(LONG result, const char* call) {
  if (result != SCARD_S_SUCCESS) throw PcscError(result, call);
}

ReaderState to_state(const SCARD_READERSTATE& state) {
  return {state.szReader, state.dwEventState,
          std::string(reinterpret_cast<const char*>(state.rgbAtr), state.cbAtr)};
}

}  // namespace

PcscError::PcscError(LONG result, const char* call)
    : std::runtime_error(std::string(call) + " " + in_hex(result)), code(result) {}

bool PcscError::service_lost() const {
  return std::any_of(std::begin(kTranslations), std::end(kTranslations), [&](const auto& row) {
    return row.code == code && &row.kind == &failures::kServiceDown;
  });
}

Failure PcscError::failure() const {
  for (const Translation& row : kTranslations)
    if (row.code == code) return Failure(row.kind);
  return Failure(failures::kReaderFault, what());
}

Context::Context() {
  check(SCardEstablishContext(SCARD_SCOPE_SYSTEM, nullptr, nullptr, &handle),
        "SCardEstablishContext");
}

std::vector<ReaderState> Context::readers() const {
  std::vector<ReaderState> found = states();
  if (states_are_true) return found;
  for (ReaderState& reader : found)
    if (!reader.card_usable()) reader = ask(reader);
  return found;
}

ReaderState Context::ask(const ReaderState& reader) const {
  SCARDHANDLE direct = 0;
  DWORD protocol = 0;
  if (SCardConnect(handle, reader.name.c_str(), SCARD_SHARE_DIRECT, 0, &direct, &protocol) !=
      SCARD_S_SUCCESS)
    return reader;
  SCardDisconnect(direct, SCARD_RESET_CARD);
  // A card that pcscd has not noticed by itself, and counted, could go without its notice too.
  const DWORD count = reader.flags >> kCountShift;
  for (int looks = 0;; ++looks) {
    ReaderState now = wait_for_change({reader.name, SCARD_STATE_UNAWARE, {}}, 0);
    if (!now.card_usable() || now.flags >> kCountShift != count || looks == kNoticeLooks)
      return now;
    std::this_thread::sleep_for(kNoticePause);
  }
}

std::vector<ReaderState> Context::states() const {
  std::string names;
  DWORD size = 0;
  LONG result = SCardListReaders(handle, nullptr, nullptr, &size);
  while (result == SCARD_S_SUCCESS) {
    names.resize(size);
    result = SCardListReaders(handle, nullptr, names.data(), &size);
    if (result != SCARD_E_INSUFFICIENT_BUFFER) break;  // else a reader has come in between
    result = SCardListReaders(handle, nullptr, nullptr, &size);
  }
  if (result == SCARD_E_NO_READERS_AVAILABLE) return {};
  check(result, "SCardListReaders");
  std::vector<SCARD_READERSTATE> states;
  for (const char* name = names.c_str(); *name != '\0'; name += std::strlen(name) + 1) {
    states.emplace_back();
    states.back().szReader = name;
    states.back().dwCurrentState = SCARD_STATE_UNAWARE;
  }
  check(SCardGetStatusChange(handle, 0, states.data(), states.size()), "SCardGetStatusChange");
  std::vector<ReaderState> readers(states.size());
  std::transform(states.begin(), states.end(), readers.begin(), to_state);
  return readers;
}

void Context::wait_for_reader(DWORD limit_ms) const {
  SCARD_READERSTATE state = {};
  state.szReader = "\\\\?PnP?\\Notification";
  const LONG result = SCardGetStatusChange(handle, limit_ms, &state, 1);
  if (result != SCARD_E_TIMEOUT) check(result, "SCardGetStatusChange");
}

ReaderState Context::wait_for_change(ReaderState state, DWORD limit_ms) const {
  SCARD_READERSTATE raw_state = {};
  raw_state.szReader = state.name.c_str();
  raw_state.dwCurrentState = state.flags;
  const LONG result = SCardGetStatusChange(handle, limit_ms, &raw_state, 1);
  if (result == SCARD_E_TIMEOUT) return state;
  check(result, "SCardGetStatusChange");
  return to_state(raw_state);
}

Card::Card(Context& pcscd, ReaderState reader_state)
    : context(pcscd), reader(std::move(reader_state)) {
  if ((reader.flags & SCARD_STATE_MUTE) != 0) throw Failure(failures::kCardMute);
  if ((reader.flags & SCARD_STATE_EXCLUSIVE) != 0 &&
      (context.wait_for_change(reader, kOthersLimitMs).flags & SCARD_STATE_EXCLUSIVE) != 0)
    throw Failure(failures::kReaderInUse);
  check(SCardConnect(context.raw(), reader.name.c_str(), SCARD_SHARE_SHARED,
                     SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, &handle, &protocol),
        "SCardConnect");
  try {
    begin();
  } catch (...) {
    SCardDisconnect(handle, SCARD_LEAVE_CARD);
    throw;
  }
}

Card::~Card() {
  SCardEndTransaction(handle, SCARD_LEAVE_CARD);
  SCardDisconnect(handle, disposition);
}

/// The transaction keeps other programs from selecting something else in between.
void Card::begin() {
  LONG result = SCardBeginTransaction(handle);
  if (result == SCARD_W_RESET_CARD) {  // by another program, since SCardConnect
    check(SCardReconnect(handle, SCARD_SHARE_SHARED, SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1,
                         SCARD_LEAVE_CARD, &protocol),
          "SCardReconnect");
    result = SCardBeginTransaction(handle);
  }
  check(result, "SCardBeginTransaction");
}

std::string Card::transmit(std::string_view command) {
  static constexpr std::size_t kStatusSize = 2;
  std::string answer(MAX_BUFFER_SIZE_EXTENDED, '\0');
  DWORD size = answer.size();
  const SCARD_IO_REQUEST* pci = is_t0() ? SCARD_PCI_T0 : SCARD_PCI_T1;
  const LONG result =
      SCardTransmit(handle, pci, reinterpret_cast<const BYTE*>(command.data()), command.size(),
                    nullptr, reinterpret_cast<BYTE*>(answer.data()), &size);
  if (result == SCARD_E_NOT_TRANSACTED) give_up();
  check(result, "SCardTransmit");
  // A card that is pulled while it answers: pcscd reports success with what has come so far.
  if (size < kStatusSize) give_up();
  context.trust_states();
  answer.resize(size);
  return answer;
}

void Card::give_up() {
  if (!context.wait_for_change(reader, kRemovalLimitMs).card_present())
    throw Failure(failures::kCardRemoved);
  disposition = SCARD_RESET_CARD;
  throw Failure(failures::kUnreadable);
}
