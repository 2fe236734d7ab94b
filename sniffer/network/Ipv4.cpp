#include "Ipv4.h"

#include <algorithm>

#include "ByteReader.h"

std::optional<Ipv4Header> Ipv4Header::read(std::span<const std::uint8_t> bytes) {
  ByteReader reader(bytes);
  Ipv4Header header;
  const unsigned versionAndLength = reader.u8();
  header.length = (versionAndLength & 0x0F) * 4;
  reader.skip(1);
  const std::size_t total = reader.u16();
  header.id = reader.u16();
  const unsigned fragment = reader.u16();
  header.moreFragments = (fragment & 0x2000) != 0;
  header.fragmentOffset = (fragment & 0x1FFF) * 8;
  reader.skip(1);
  header.protocol = reader.u8();
  reader.skip(2);
  header.source = reader.u32();
  header.destination = reader.u32();
  if (!reader.ok() || versionAndLength >> 4 != 4 || header.length < 20 || header.length > bytes.size()) return {};
  // A card that is to cut the packet leaves 0 there.
  header.total = total == 0 ? bytes.size() : std::min(total, bytes.size());
  header.cut = total > bytes.size();
  if (header.total < header.length) return {};
  return header;
}
