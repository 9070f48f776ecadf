#pragma once

/// Lets translated() give texts in the language of the user's locale, from share/locale beside the
/// folder of the running program. Once, at the start of a command-line tool, before any other
/// thread. `charset` is that of the texts given; null: the locale's.
void use_language_of_locale(const char* charset = nullptr);

/// The same for a program that must stay in locale "C", since it runs code of others that would see
/// another one: translated() gives UTF-8, and the process's locale is not touched.
void use_language_in_locale_c();

/// Takes use_language_in_locale_c() back, for output that programs read.
void use_english();

/// The text, or format, in the user's language; itself where there is no translation, and in a
/// program that has called none of the above, such as the service. Valid for ever.
[[gnu::format_arg(1)]] const char* translated(const char* text);

/// Marks a text that is translated later, where it is used.
constexpr const char* translatable(const char* text) { return text; }
