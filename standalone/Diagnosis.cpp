#include "Diagnosis.h"

#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <iostream>
#include <string>

namespace {

bool mayCapture() {
  const int sd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
  if (sd == -1) return errno != EPERM;
  close(sd);
  return true;
}

std::string programPath() {
  std::error_code error;
  const auto path = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? "sniffer" : path.string();
}

std::string existingDevices() {
  std::string names;
  struct if_nameindex* all = if_nameindex();
  for (const auto* one = all; one != nullptr && one->if_name != nullptr; ++one) {
    names += (names.empty() ? "" : ", ") + std::string(one->if_name);
  }
  if_freenameindex(all);
  return names;
}

void explainPrivilege() {
  std::cerr << "sniffer: capturing needs the capability CAP_NET_RAW. Run as root, or give it to the program once:\n"
            << "  sudo setcap cap_net_raw,cap_net_admin=ep " << programPath() << std::endl;
}

}  // namespace

void explainDownDevices(const Sniffer& engine) {
  bool privilegeMissing = false;
  for (int i = 0; i < engine.getDeviceCount(); ++i) {
    const std::string name = engine.getDevice(i);
    if (!engine.isDeviceDown(i) || captureFilePath(name)) continue;
    if (if_nametoindex(name.c_str()) == 0) {
      std::cerr << "sniffer: there is no device \"" << name << "\"; the devices here are: " << existingDevices()
                << std::endl;
    } else {
      privilegeMissing = privilegeMissing || !mayCapture();
    }
  }
  if (privilegeMissing) explainPrivilege();
}
