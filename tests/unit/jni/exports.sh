#!/bin/sh
# exports.sh NM LIBRARY: fails unless the library exports exactly the five native methods.
prefix=Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_
expected="${prefix}breakMainLoop
${prefix}getPacket
${prefix}getPackets
${prefix}mainLoop
${prefix}sendRequest"
found=$("$1" -D --defined-only "$2" | awk '{print $3}' | LC_ALL=C sort)
[ "$found" = "$expected" ] && exit
echo "$2 exports:"
echo "$found"
exit 1
