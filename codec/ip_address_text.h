// The daemon's address texts (dotted decimal, sixteen numbers for IPv6) turned into bytes, shared
// by the data-call and bearer records. Any thread; no state.
#ifndef ZOK_CODEC_IP_ADDRESS_TEXT_H
#define ZOK_CODEC_IP_ADDRESS_TEXT_H

// 1: sixteen dotted numbers (IPv6); 0: three or more dots (IPv4); -1: neither.
int classifyIpAddressText(char *text);
int ipv6TextToBytes(char *text, unsigned char *out16);
int ipv4TextToBytes(char *text, unsigned char *out4);

#endif  // ZOK_CODEC_IP_ADDRESS_TEXT_H
