#pragma once

namespace gvxctl {

// Reads one password from standard input, its first line without the line end, and prints its enciphered form. At a
// terminal it asks, and what is typed is not shown.
int RunSecretEncipher();

}  // namespace gvxctl
