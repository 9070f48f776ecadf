#include "bench/client/service_folder.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include "bench/client/child_process.h"

namespace fs = std::filesystem;

TemporaryFolder::TemporaryFolder(const std::string& mark) {
  std::string pattern = (fs::temp_directory_path() / (mark + "-XXXXXX")).string();
  if (mkdtemp(pattern.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), pattern);
  }
  directory = pattern;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  fs::remove_all(directory, ignored);
}

std::string read_file(const fs::path& path) {
  std::ifstream stream(path, std::ios::binary);
  std::string bytes(std::istreambuf_iterator<char>(stream), {});
  if (!stream) throw std::runtime_error(path.string() + ": can't be read");
  return bytes;
}

void write_file(const fs::path& path, std::string_view bytes) {
  std::ofstream stream(path, std::ios::binary | std::ios::trunc);
  stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush();
  if (!stream) throw std::runtime_error(path.string() + ": can't be written");
}

ServiceFolder::ServiceFolder(const fs::path& installed, const std::string& mark) : folder(mark) {
  fs::create_directory(path() / "bin");
  for (const auto& entry : fs::directory_iterator(installed / "bin")) {
    const std::string name = entry.path().filename().string();
    // The tools are large with sanitizers, and the service does not need them.
    if (name.rfind("quorvel-", 0) == 0) continue;
    // Copies, not links: started by a bare name the service asks the kernel for its own path.
    fs::copy(entry.path(), path() / "bin" / name, fs::copy_options::recursive);
  }
  fs::copy(installed / "mount-origin", path() / "mount-origin", fs::copy_options::recursive);
}

void ServiceFolder::write_service_ini(const std::vector<std::string>& libraries,
                                      uint16_t port) const {
  std::string text = "[REGISTER]\n";
  for (size_t index = 0; index < libraries.size(); ++index) {
    text += "lib" + std::to_string(index + 1) + "=" + libraries[index] + "\n";
  }
  text += "[SERVER]\nlocalport=" + std::to_string(port) + "\n";
  write_file(path() / "bin/quorvel_service.ini", text);
}

fs::path ServiceFolder::make_certificate() const {
  fs::path certificate = path() / "localhost-100y.cert";
  const ProgramResult result =
      run_program({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                   "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2", "-subj", "/CN=localhost",
                   "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1", "-keyout",
                   (path() / "localhost-100y.key").string(), "-out", certificate.string()});
  if (result.status != 0) throw std::runtime_error("openssl: " + result.errors);
  return certificate;
}
