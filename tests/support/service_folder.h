#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/files.h"

/// A copy of an installed service (its program, reader libraries, INI files and page) that a test
/// may change at will; the service is to run with path() as its working directory.
class ServiceFolder {
 public:
  /// `installed` is the directory given to the installation as its prefix.
  /// Throws std::filesystem::filesystem_error.
  explicit ServiceFolder(const std::filesystem::path& installed,
                         const std::string& mark = "quorvel");

  const std::filesystem::path& path() const { return folder.path(); }
  std::filesystem::path program() const { return path() / "bin/quorvelserver"; }
  std::filesystem::path service_ini() const { return path() / "bin/quorvel_service.ini"; }
  std::filesystem::path server_ini() const { return path() / "bin/quorvel.ini"; }

  /// Writes bin/quorvel_service.ini: lib1, lib2, ... in the given order, the port, and further
  /// sections as they stand.
  void write_service_ini(const std::vector<std::string>& libraries, uint16_t port,
                         const std::string& sections = {}) const;

  /// Makes the key and the self-signed certificate (for localhost and 127.0.0.1) that the service
  /// reads when it serves TLS. `key` are openssl's arguments for a new key. Returns the
  /// certificate's path. Throws std::runtime_error.
  std::filesystem::path make_certificate(const std::vector<std::string>& key = {
                                             "ec", "-pkeyopt",
                                             "ec_paramgen_curve:prime256v1"}) const;

 private:
  TemporaryFolder folder;
};
