#include "signalling/CallMaps.h"

#include <string>
#include <utility>

#include "base/Logger.h"

namespace voip {

void CallMaps::announce(const PString& callReference, const h245Addr& addr) {
  const std::lock_guard guard(lock_);
  callRefMap_.insert_or_assign(callReference, addr);
  logger().debug("Inserted ", callReference, " and ", addr, " into Call Reference Map");
  if (const auto old = h245Map_.find(addr); old != h245Map_.end()) erase(old);
  if (h245Map_.size() == kMaxAddresses) eraseOldest();
  h245Map_.insert({addr, {callReference, byAge_.insert(byAge_.end(), addr)}});
  logger().debug("Inserted ", addr, " and ", callReference, " into H245 Map");
}

void CallMaps::release(const PString& callReference) {
  const std::lock_guard guard(lock_);
  const auto call = callRefMap_.find(callReference);
  if (call == callRefMap_.end()) return;
  const h245Addr addr = call->second;
  callRefMap_.erase(call);
  logger().debug("Erased ", callReference, " and ", addr, " from Call Reference Map");
  const auto entry = h245Map_.find(addr);
  if (entry == h245Map_.end()) return;
  erase(entry);
  logger().debug("Erased ", addr, " and ", callReference, " from H245 Map");
}

std::optional<PString> CallMaps::callOf(const h245Addr& addr) const {
  const std::lock_guard guard(lock_);
  const auto entry = h245Map_.find(addr);
  return entry == h245Map_.end() ? std::nullopt : std::optional(entry->second.callReference);
}

void CallMaps::display() const {
  if (!logger().isDebugEnabled()) return;
  const std::lock_guard guard(lock_);
  if (callRefMap_.empty()) logger().debug("CallRefMap is empty");
  if (h245Map_.empty()) logger().debug("h245Map is empty");
  for (const auto& [callReference, addr] : callRefMap_) {
    logger().debug("Call Ref Map --- Key = ", callReference, ", Value = ", addr);
  }
  for (const auto& [addr, announcement] : h245Map_) {
    logger().debug("h245Map --- Key = ", addr, ", Value = ", announcement.callReference);
  }
}

void CallMaps::erase(AddressMap::iterator entry) {
  byAge_.erase(entry->second.age);
  h245Map_.erase(entry);
}

// Removes the call as well if this is the last address that it announced. Otherwise a late release of that call would
// remove the address from a call that has announced it in the meantime.
void CallMaps::eraseOldest() {
  const auto oldest = h245Map_.find(byAge_.front());
  const auto call = callRefMap_.find(oldest->second.callReference);
  if (call != callRefMap_.end() && call->second == oldest->first) callRefMap_.erase(call);
  erase(oldest);
  if (statistics_ != nullptr) statistics_->h245AddressesForgotten.add();
  if (!std::exchange(warned_, true)) {
    logger().warn("More than " + std::to_string(kMaxAddresses) +
                  " H.245 addresses were announced by calls that nobody released: "
                  "from now on the oldest are forgotten");
  }
}

}  // namespace voip
