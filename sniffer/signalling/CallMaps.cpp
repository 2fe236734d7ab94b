#include "signalling/CallMaps.h"

#include "base/Logger.h"

#include <utility>

namespace voip {

namespace {}

void CallMaps::announce(const PString& callReference, const h245Addr& addr) {
  const std::lock_guard guard(lock);
  callRefMap.insert_or_assign(callReference, addr);
  logger().debug("Inserted ", callReference, " and ", addr, " into Call Reference Map");
  if (const auto old = h245Map.find(addr); old != h245Map.end()) erase(old);
  if (h245Map.size() == kMostAddresses) forgetOldest();
  h245Map.insert({addr, {callReference, byAge.insert(byAge.end(), addr)}});
  logger().debug("Inserted ", addr, " and ", callReference, " into H245 Map");
}

void CallMaps::release(const PString& callReference) {
  const std::lock_guard guard(lock);
  const auto call = callRefMap.find(callReference);
  if (call == callRefMap.end()) return;
  const h245Addr addr = call->second;
  callRefMap.erase(call);
  logger().debug("Erased ", callReference, " and ", addr, " from Call Reference Map");
  const auto entry = h245Map.find(addr);
  if (entry == h245Map.end()) return;
  erase(entry);
  logger().debug("Erased ", addr, " and ", callReference, " from H245 Map");
}

std::optional<PString> CallMaps::callOf(const h245Addr& addr) const {
  const std::lock_guard guard(lock);
  const auto entry = h245Map.find(addr);
  return entry == h245Map.end() ? std::nullopt : std::optional(entry->second.callReference);
}

void CallMaps::display() const {
  if (!logger().isDebugEnabled()) return;
  const std::lock_guard guard(lock);
  if (callRefMap.empty()) logger().debug("CallRefMap is empty");
  if (h245Map.empty()) logger().debug("h245Map is empty");
  for (const auto& [callReference, addr] : callRefMap) {
    logger().debug("Call Ref Map --- Key = ", callReference, ", Value = ", addr);
  }
  for (const auto& [addr, announcement] : h245Map) {
    logger().debug("h245Map --- Key = ", addr, ", Value = ", announcement.callReference);
  }
}

void CallMaps::erase(AddressMap::iterator entry) {
  byAge.erase(entry->second.age);
  h245Map.erase(entry);
}

// The call goes with its address, if that is the last one it announced: else its release, should it come after all,
// would take the address away from whoever announces it by then.
void CallMaps::forgetOldest() {
  const auto oldest = h245Map.find(byAge.front());
  const auto call = callRefMap.find(oldest->second.callReference);
  if (call != callRefMap.end() && call->second == oldest->first) callRefMap.erase(call);
  erase(oldest);
  if (statistics != nullptr) statistics->h245AddressesForgotten.add();
  if (!std::exchange(warned, true)) {
    logger().warn(
        "More than " + std::to_string(kMostAddresses) +
        " H.245 addresses were announced by calls that nobody released: from now on the oldest are forgotten");
  }
}

}  // namespace voip
