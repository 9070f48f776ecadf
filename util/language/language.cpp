#include "util/language/language.h"

#include <libintl.h>
#include <locale.h>

#include <clocale>
#include <memory>
#include <type_traits>

#include "util/os/program_path.h"

namespace {

constexpr char kDomain[] = "quorvelserver";

struct FreeLocale {
  void operator()(locale_t locale) const { freelocale(locale); }
};
using Locale = std::unique_ptr<std::remove_pointer_t<locale_t>, FreeLocale>;

/// Of the messages alone, for a process that stays in locale "C"; null: the process's own.
Locale language;

void use_catalogue(const char* charset) {
  bindtextdomain(kDomain, (executable_directory() + "/../share/locale").c_str());
  if (charset != nullptr) bind_textdomain_codeset(kDomain, charset);
}

}  // namespace

void use_language_of_locale(const char* charset) {
  // Not the others: numbers that programs read keep their point.
  (void)std::setlocale(LC_CTYPE, "");     // NOLINT(concurrency-mt-unsafe): before any other thread
  (void)std::setlocale(LC_MESSAGES, "");  // NOLINT(concurrency-mt-unsafe): the same
  use_catalogue(charset);
}

void use_language_in_locale_c() {
  language.reset(newlocale(LC_MESSAGES_MASK, "", nullptr));
  use_catalogue("UTF-8");
}

void use_english() { language.reset(); }

const char* translated(const char* text) {
  if (language == nullptr) return dgettext(kDomain, text);
  const locale_t before = uselocale(language.get());
  const char* const found = dgettext(kDomain, text);
  uselocale(before);
  return found;
}
