#include "readers/common/failure.h"

#include "util/text/utf8.h"

namespace {

using namespace failures;

constexpr FailureKind kAll[] = {kNoReader,      kNoCard,        kCardRemoved,     kUnreadable,
                                kWrongKind,     kWriteRefused,  kReaderInUse,     kServiceDown,
                                kServiceDenied, kCardMute,      kUnknownCard,     kCardRefused,
                                kBadCardData,   kReaderFault,   kUnknownFunction, kUnknownMember,
                                kBadValue,      kUnknownPerson, kCardFile,        kReplyTooLong};

std::string shorten(std::string_view text, std::size_t limit) {
  return std::string(cut_utf8(text, limit)) + (text.size() > limit ? "..." : "");
}

std::string with_detail(std::string text, std::string_view detail, std::size_t limit) {
  const std::size_t place = text.find('%');
  if (place != std::string::npos) text.replace(place, 1, shorten(detail, limit));
  return text;
}

}  // namespace

const FailureKind* find_failure(std::string_view name) {
  for (const FailureKind& kind : kAll)
    if (name == kind.name) return &kind;
  return nullptr;
}

Failure::Failure(const FailureKind& kind, std::string_view detail, std::size_t limit)
    : std::runtime_error(with_detail(kind.errmsg, detail, limit)), code(kind.code) {}

Failure::Failure(std::string own_code, const std::string& own_errmsg)
    : std::runtime_error(own_errmsg), code(std::move(own_code)) {}
