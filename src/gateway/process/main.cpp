#include "gateway/process/gateway_main.h"

int main(int argc, char** argv) {
    return gvx::GatewayMain(argc, argv);
}
