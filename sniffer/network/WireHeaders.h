#pragma once

#include <sys/types.h>

namespace voip {

// Headers as they are in a frame: multi-byte fields in network order. A header may be at any address in a frame, so it
// is copied out, never read in place.

struct sniff_ethernet {
  u_char ether_dhost[6];
  u_char ether_shost[6];
  u_char ether_type[2];
};

/// RFC 791, without options.
struct sniff_ip {
  u_char ip_vhl;
  u_char ip_tos;
  u_short ip_len;
  u_short ip_id;
  u_short ip_off;
  u_char ip_ttl;
  u_char ip_p;
  u_short ip_sum;
  u_int ip_src;
  u_int ip_dst;
};

/// RFC 9293, without options.
struct sniff_tcp {
  u_short th_sport;
  u_short th_dport;
  u_int th_seq;
  u_int th_ack;
  u_char th_offx2;
  u_char th_flags;
  u_short th_win;
  u_short th_sum;
  u_short th_urp;
};

/// RFC 768.
struct sniff_udp {
  u_short uh_sport;
  u_short uh_dport;
  u_short uh_ulen;
  u_short uh_sum;
};

}  // namespace voip
