#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Descriptions of cards, as docs/card-profiles.md explains them to the people who write them. Byte
// strings are std::string.

/// One action on the card.
struct Step {
  enum class Verb {
    kSelectAid,   // argument: the application identifier
    kSelectPath,  // argument: the path from the master file, as the card wants it
    kSelectFile,  // argument: a file identifier, as all of the following
    kSelectDf,
    kSelectEf,
    kReadBinary,   // first: offset; count: length, 0 for all of the rest
    kReadRecords,  // first: number of the first record; count: how many
    kReadBuffer,   // the tags and values of a CAC's container
    kGetData,      // argument: the tag of one or two bytes
    kGetObject,    // argument: the tag
  };

  Verb verb = Verb::kSelectAid;
  std::string argument;
  unsigned first = 0;
  unsigned count = 0;
  bool extended = false;  ///< ask for more than 256 bytes at once
  bool optional = false;  ///< a card without this file or object is served too
  std::string result;     ///< the name under which members refer to what was read
  std::string text;       ///< as in the file, for messages
};

/// Takes a part of a value out of it.
struct Cut {
  enum class Kind {
    kRecord,   // first: the record's number
    kRange,    // first: offset; count: length, 0 for all of the rest
    kBer,      // path: tags, from the outside in
    kSimple,   // first: the tag; lengths from 255 on as FF and two bytes
    kChained,  // first: the tag; lengths from 255 on as a sum of bytes, of which all but the last
               // are FF
  };

  Kind kind = Kind::kRange;
  unsigned first = 0;
  unsigned count = 0;
  std::vector<std::uint32_t> path;
};

enum class Decoding { kAscii, kLatin1, kCp1252, kUtf8, kUtf16be, kGbk, kHex, kBcd, kNumber };
enum class DateOrder { kNone, kYmd, kDmy, kMdy };

/// One member of a reply.
struct Member {
  std::string name;
  std::size_t step = 0;  ///< index of the step that reads it
  std::vector<Cut> cuts;
  std::string strip;  ///< bytes that are removed from both ends
  Decoding decoding = Decoding::kAscii;
  DateOrder date = DateOrder::kNone;
  bool required = false;  ///< an empty value is a failure
};

/// One function that a kind of card serves.
struct CardFunction {
  std::string name;
  std::vector<Step> steps;
  std::vector<Member> members;
};

/// The answer to reset of a kind of card: of a byte, only the bits in the mask count.
struct AtrPattern {
  std::string value;
  std::string mask;   ///< as long as the value
  bool open = false;  ///< more bytes may follow
};

/// One kind of card.
struct Profile {
  std::string id;
  std::string name;
  std::vector<AtrPattern> atrs;  ///< one of them fits; none: any ATR does
  std::string aid;               ///< can be selected; empty: need not

  bool fits_atr(std::string_view atr) const;
  /// Null when cards of this kind don't serve it.
  const CardFunction* find_function(std::string_view function) const;

  std::vector<CardFunction> functions;
};

struct ProfileSet {
  bool transmit = false;  ///< whether pages may send commands of their own
  std::vector<Profile> profiles;

  /// The functions of all profiles, each once.
  std::vector<std::string> function_names() const;
};
