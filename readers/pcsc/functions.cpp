#include "readers/pcsc/functions.h"

std::string listed_functions(const ProfileSet& profiles) {
  std::string list = std::string(kReadersFunction) + "\n";
  if (profiles.transmit) list += std::string(kTransmitFunction) + "\n";
  for (const std::string& name : profiles.function_names()) list += name + "\n";
  return list;
}
