#include "bench/soak/soaked_service.h"

#include <string>
#include <vector>

#include "tests/support/eventually.h"

namespace {

/// Lists the libraries, and returns the folder.
const ServiceFolder& with_libraries(const ServiceFolder& folder, std::uint16_t port) {
  std::vector<std::string> libraries = {"libquorveldemo.so"};
  std::string isolated = "[ISOLATED]\n";
  for (const std::string name : kIsolatedNames) {
    libraries.push_back(SOAK_READERS "/" + name + ".so");
    isolated += "lib" + std::to_string(libraries.size()) + "=60\n";
  }
  folder.write_service_ini(libraries, port, isolated);
  return folder;
}

std::size_t descriptors_once_listening(DaemonProcess& daemon, std::uint16_t port) {
  daemon.wait_until_listening(port);
  return daemon.process().open_descriptors();
}

}  // namespace

SoakedService::SoakedService(const std::filesystem::path& stage)
    : folder(stage),
      traffic_target{free_port(),
                     {one.port(), two.port()},
                     read_file(folder.path() / "mount-origin/index.html"),
                     {},
                     folder.server_ini()},
      daemon(with_libraries(folder, traffic_target.port)),
      helper_processes(daemon.process().pid(), std::size(kIsolatedNames)),
      idle_descriptors(descriptors_once_listening(daemon, traffic_target.port)) {
  WsClient client(traffic_target.port);
  traffic_target.card = client.ask("readcardbas");
  client.ask(settings_request(one.port()));
}

bool SoakedService::gives_back_descriptors() {
  return eventually([this] { return daemon.process().open_descriptors() == idle_descriptors; });
}
