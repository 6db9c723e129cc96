#pragma once

#include <cstddef>

// The first IPv4 address of a network interface as dotted text, written to a buffer of 16 bytes. 0 for success; 1
// for a null pointer or when there is no such interface with an address (the buffer then holds an empty text).
// The name is an interface of the system ("eth0"), or a role such as "INTERNAL_API" or "EXTERNAL_API"; the interface
// that plays a role stands in network.conf of the configuration folder, a line "INTERNAL_API=eth0". Any thread.
int ZVS_GetIpByNetworkface(const char* name, char* ip);

// The site's network mode: the value of NETWORK_MODE in network.conf of the configuration folder, one of
// "standard", "simplify" and "compatible" (another word is given as it stands). 0 for success; 1 for a null or
// empty buffer, a missing file or value, or a value that does not fit (the buffer then holds an empty text).
// Any thread.
int ZVS_GetNetworkMode(char* buffer, std::size_t size);
