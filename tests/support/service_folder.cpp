#include "tests/support/service_folder.h"

#include <stdexcept>

#include "tests/support/child_process.h"

namespace fs = std::filesystem;

ServiceFolder::ServiceFolder(const fs::path& installed, const std::string& mark) : folder(mark) {
  fs::create_directory(path() / "bin");
  for (const auto& entry : fs::directory_iterator(installed / "bin")) {
    const std::string name = entry.path().filename().string();
    // The tools are large with sanitizers, and the service does not need them.
    if (name.rfind("quorvel-", 0) == 0 && name != "quorvel-host") continue;
    // Copies, not links: started by a bare name the service asks the kernel for its own path.
    fs::copy(entry.path(), path() / "bin" / name, fs::copy_options::recursive);
  }
  fs::copy(installed / "mount-origin", path() / "mount-origin", fs::copy_options::recursive);
}

void ServiceFolder::write_service_ini(const std::vector<std::string>& libraries, uint16_t port,
                                      const std::string& sections) const {
  std::string text = "[REGISTER]\n";
  for (size_t index = 0; index < libraries.size(); ++index) {
    text += "lib" + std::to_string(index + 1) + "=" + libraries[index] + "\n";
  }
  text += "[SERVER]\nlocalport=" + std::to_string(port) + "\n" + sections;
  write_file(service_ini(), text);
}

fs::path ServiceFolder::make_certificate(const std::vector<std::string>& key) const {
  fs::path certificate = path() / "localhost-100y.cert";
  std::vector<std::string> arguments = {"openssl", "req",
                                        "-x509",   "-nodes",
                                        "-days",   "2",
                                        "-subj",   "/CN=localhost",
                                        "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1",
                                        "-keyout", path() / "localhost-100y.key",
                                        "-out",    certificate,
                                        "-newkey"};
  arguments.insert(arguments.end(), key.begin(), key.end());
  const ProgramResult result = run_program(arguments);
  if (result.status != 0) throw std::runtime_error("openssl: " + result.errors);
  return certificate;
}
