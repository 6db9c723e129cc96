#include "gvx_common/config/config_secret.h"

#include "base/log.h"
#include "base/redact.h"

namespace gvx {

bool IsSecretName(const std::string& name) {
    const std::string line = name + "=x";
    return RedactSecrets(line) != line;
}

const char* LoggableValue(const std::string& name, const char* value) {
    return IsSecretName(name) ? "***" : value;
}

}  // namespace gvx
