#pragma once

#include <map>
#include <string>
#include <vector>

/// The files and objects of a card after ISO 7816-4, as the commands that reach them. What is not
/// there is refused with the standard's status words.
class IsoCard {
 public:
  // A file by the way that leads to it: "aid HEX", then "/5000/5001" for DF and EF, or from the
  // master file "3F00/EEEE/5044". All in upper case.
  std::map<std::string, std::string> files;
  // Or the two buffers of a container, each behind its length.
  std::map<std::string, std::vector<std::string>> record_files;
  std::map<std::string, std::string> objects;  // by tag, as the card answers

  bool is_t0 = false;              // says how much there is, instead of giving it
  bool gives_exactly = false;      // 6Cxx for a wrong expected length
  bool knows_extended = false;     // takes extended lengths, and with T=0 both lengths
  bool wants_information = false;  // refuses a SELECT that asks for none
  std::size_t most = 256;          // bytes of one answer without extended length
  std::vector<std::string> log;    // of the commands, in hexadecimal digits

  /// The answer to one command, with its status.
  std::string answer(const std::string& command);

  /// A command's parts; `expected` is 0 when it names no length.
  struct Parts {
    unsigned char ins, p1, p2;
    std::string data;
    std::size_t expected;
    bool is_extended;  // the lengths
  };

 private:
  std::string carry_out(const Parts& parts);
  std::string select(unsigned char p1, unsigned char p2, const std::string& what);
  bool exists(const std::string& place) const;

  std::string df;       // current directory
  std::string current;  // current file
  std::string pending;  // for GET RESPONSE
};
