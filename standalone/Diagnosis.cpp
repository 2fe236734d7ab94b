#include "Diagnosis.h"

#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <pcap/pcap.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <iostream>
#include <string>

using namespace voip;

namespace {

constexpr const char* kAllDevices = "any";  // a device of libpcap's own

/// Returns false when the process lacks the capability that capturing needs.
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

std::string addressText(const sockaddr* address) {
  char text[NI_MAXHOST] = "";
  if (address == nullptr) return text;
  const socklen_t length = address->sa_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
  if (address->sa_family != AF_INET && address->sa_family != AF_INET6) return text;
  getnameinfo(address, length, text, sizeof text, nullptr, 0, NI_NUMERICHOST);
  return text;
}

bool exists(const std::string& device) {
  return captureFilePath(device) || device == kAllDevices || if_nametoindex(device.c_str()) != 0;
}

std::string missingDeviceText(const std::string& device) {
  return "there is no device \"" + device + "\"; the devices here are: " + existingDevices();
}

}  // namespace

DownDevice diagnose(const Sniffer& engine, int i) {
  const std::string name = engine.getDevice(i);
  if (!exists(name)) return {missingDeviceText(name), false};
  const std::string text = "device \"" + name + "\" cannot be opened: " + engine.getDeviceError(i);
  if (captureFilePath(name)) return {text + "; name another capture file", false};
  if (!mayCapture()) return {text, true};
  return {text + "; bring it up (ip link set dev " + name + " up) or name another device", false};
}

void explainPrivilege() {
  std::cerr << "sniffer: capturing needs the capability CAP_NET_RAW. Run as root, or give it to the program once:\n"
            << "  sudo setcap cap_net_raw,cap_net_admin=ep " << programPath() << std::endl;
}

void explainDownDevices(const Sniffer& engine) {
  bool privilegeMissing = false;
  for (int i = 0; i < engine.getDeviceCount(); ++i) {
    const std::string name = engine.getDevice(i);
    if (!engine.isDeviceDown(i) || captureFilePath(name)) continue;
    if (!exists(name)) {
      std::cerr << "sniffer: " << missingDeviceText(name) << std::endl;
    } else {
      privilegeMissing = privilegeMissing || !mayCapture();
    }
  }
  if (privilegeMissing) explainPrivilege();
}

bool listDevices() {
  char errbuf[PCAP_ERRBUF_SIZE] = "";
  pcap_if_t* devices = nullptr;
  if (pcap_findalldevs(&devices, errbuf) != 0) {
    std::cerr << "sniffer: cannot list the devices: " << errbuf << std::endl;
    return false;
  }
  for (const pcap_if_t* device = devices; device != nullptr; device = device->next) {
    std::cout << device->name;
    if (device->description != nullptr) std::cout << " (" << device->description << ")";
    for (const pcap_addr_t* one = device->addresses; one != nullptr; one = one->next) {
      if (const std::string text = addressText(one->addr); !text.empty()) std::cout << " " << text;
    }
    std::cout << "\n";
  }
  pcap_freealldevs(devices);
  return true;
}
