#pragma once

namespace gvx {

// The whole of gvxd: reads the command line, starts, waits for a stop signal, stops. The result is the exit code of the
// process (exit_codes.h).
int GatewayMain(int argc, const char* const* argv);

}  // namespace gvx
