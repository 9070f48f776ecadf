// A CAC that nobody here wrote, and what other programs say of it.

#include <libcacard.h>

#include "tests/pcsc/pcsc_test.h"
#include "util/text/hex.h"

namespace {

constexpr char kReader[] = "CAC";
constexpr char kCertificate[] = "identity";

/// What certutil prints.
std::string certutil(const std::string& database, std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"certutil", "-d", database});
  const ProgramResult result = run_program(arguments);
  if (result.status != 0) throw std::runtime_error("certutil: " + result.errors);
  return result.output;
}

/// A CAC of an invented person, emulated by libcacard, with one certificate. One a process.
class CacCard {
 public:
  CacCard() {
    const std::string noise = folder.path() / "noise";
    write_file(noise, "The key is of no worth.");
    certutil(database, {"-N", "--empty-password"});
    certutil(database, {"-S", "-n", kCertificate, "-s", "CN=MUSTERMANN.ANNA.1234567890", "-x", "-t",
                        "u,u,u", "-z", noise, "-k", "rsa", "-g", "2048", "-m", "4660"});
    const std::string options =
        "db=\"" + database + "\" use_hw=no soft=(," + kReader + ",CAC,," + kCertificate + ")";
    vcard_emul_init(vcard_emul_options(options.c_str()));
    reader.reset(vreader_get_reader_by_name(kReader));
    if (!reader || vreader_card_is_present(reader.get()) != VREADER_OK)
      throw std::runtime_error("libcacard: no card");
  }

  /// Switches the card on: once, since it would begin anew.
  std::string atr() {
    std::string out(64, '\0');
    int size = static_cast<int>(out.size());
    vreader_power_on(reader.get(), reinterpret_cast<unsigned char*>(out.data()), &size);
    return out.substr(0, static_cast<std::size_t>(size));
  }
  /// The answer to one command, with its status.
  std::string answer(const std::string& command) {
    std::string in = command;
    std::string out(65538, '\0');
    int size = static_cast<int>(out.size());
    vreader_xfr_bytes(reader.get(), reinterpret_cast<unsigned char*>(in.data()),
                      static_cast<int>(in.size()), reinterpret_cast<unsigned char*>(out.data()),
                      &size);
    return out.substr(0, static_cast<std::size_t>(size));
  }
  /// The certificate, DER, by the program that made it.
  std::string certificate() const { return certutil(database, {"-L", "-n", kCertificate, "-r"}); }

 private:
  const TemporaryFolder folder{"cac"};  // certificate and key
  const std::string database = "sql:" + folder.path().string();
  std::unique_ptr<VReader, decltype(&vreader_free)> reader{nullptr, vreader_free};
};

/// What a program prints about the card, as hexadecimal digits without what is between them.
std::string digits_of(const std::vector<std::string>& arguments) {
  const ProgramResult result = run_program(arguments);
  EXPECT_EQ(0, result.status) << result.errors;
  std::string digits;
  for (const char c : result.output.substr(0, result.output.find(" @")))
    if (std::isxdigit(static_cast<unsigned char>(c)) != 0)
      digits += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return digits;
}

TEST_F(PcscTest, CacSaysTheSameToOtherPrograms) {
  CacCard card;
  insert(card.atr(), [&card](const std::string& command) { return card.answer(command); });
  const std::string atr = digits_of({"opensc-tool", "--atr"});
  const std::string serial = digits_of({"opensc-tool", "--serial"});
  EXPECT_NE(std::string::npos,
            library.call("pcsc.readers").find(R"("atr":")" + atr + R"(","profile":"CAC"})"));
  EXPECT_EQ(R"({"result":"true","fid":"readcardbas","data":{"fascn":"","idnumber":"",)"
            R"("expires":"","cardnumber":")" +
                serial + "\"}}",
            library.call("readcardbas"));

  // The certificate, which is longer than a buffer's part and than a reply.
  std::string read;
  for (const char* part : {"0 400", "400"}) {
    library.write_profiles(
        "[cac]\naid=A0000001 16DB00\n[cac readcardbas]\nstep=select aid A0000000790100\n"
        "step=read buffer as pki\nmember.part=pki simple 70 bytes " +
        std::string(part) + " hex\n");
    const std::string reply = library.call("readcardbas");
    const std::size_t begin = reply.find("\"part\":\"") + 8;
    read += reply.substr(begin, reply.find('"', begin) - begin);
  }
  EXPECT_EQ(hexadecimal(card.certificate()), read);
  const ProgramResult der =
      run_program({"sh", "-c", "pkcs15-tool --read-certificate 0001 | openssl x509 -outform DER"});
  EXPECT_EQ(hexadecimal(der.output), read) << der.errors;
}

}  // namespace
