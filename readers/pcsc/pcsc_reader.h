#pragma once

#include <functional>
#include <memory>

#include "readers/common/reader.h"
#include "readers/pcsc/pcsc.h"
#include "readers/pcsc/profile_file.h"

/// Reads cards of the described kinds on the machine's PC/SC readers.
class PcscReader : public Reader {
 public:
  /// Throws Failure when the profile file has mistakes. Does not need pcscd.
  PcscReader() { file.current(); }

  Reply answer(const std::string& function, std::string_view command) override;

 private:
  Json run(const std::string& function, std::string_view command);
  Json list_readers(const ProfileSet& profiles);
  Json read_any(const ProfileSet& profiles, const std::string& function, const std::string& part);
  Json transmit(const cJSON* data);

  std::vector<ReaderState> readers();
  std::vector<ReaderState> readers_with_card(const std::string& part);

  ProfileFile file;
  std::unique_ptr<Context> context;  ///< kept between requests; none after pcscd was lost
};
