#include "gvxctl/secret_command.h"

#include "base/bounded_string.h"
#include "base/default_logger.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/security/gvx_security_mgr.h"
#include "gvxctl/commands.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <termios.h>
#include <unistd.h>

namespace gvxctl {
namespace {

// What a device login deciphers into, terminator included.
constexpr std::size_t kMostSecretBytes = 256;

// Hides what is typed, for a scope.
class SilentTerminal {
public:
    SilentTerminal() : m_isTerminal(tcgetattr(STDIN_FILENO, &m_former) == 0) {
        if (m_isTerminal) {
            termios silent = m_former;
            silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
            tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
            std::fputs("Password: ", stderr);
        }
    }
    ~SilentTerminal() {
        if (m_isTerminal) {
            tcsetattr(STDIN_FILENO, TCSAFLUSH, &m_former);
            std::fputs("\n", stderr);
        }
    }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

private:
    termios m_former{};
    const bool m_isTerminal;
};

// Byte by byte past every buffer of the library, which would keep a copy. Why it is refused, or null.
const char* ReadSecret(char (&secret)[kMostSecretBytes]) {
    const SilentTerminal silent;
    std::size_t length = 0;
    for (;;) {
        char c = 0;
        const ssize_t count = read(STDIN_FILENO, &c, 1);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return "standard input can not be read";
        }
        if (count == 0 || c == '\n') {
            break;
        }
        if (length + 1 == sizeof(secret)) {
            return "the password is longer than 255 bytes";
        }
        secret[length++] = c;
    }
    if (length > 0 && secret[length - 1] == '\r') {
        secret[--length] = '\0';
    }
    if (length == 0) {
        return "standard input holds no password";
    }
    for (std::size_t i = 0; i < length; ++i) {
        if (static_cast<unsigned char>(secret[i]) < ' ' || secret[i] == '\x7f') {
            return "the password holds a control character";
        }
    }
    return nullptr;
}

}  // namespace

int RunSecretEncipher() {
    char secret[kMostSecretBytes] = {};
    char enciphered[CSecurityMgr::EncipheredSize(kMostSecretBytes)];
    const char* refused = ReadSecret(secret);
    if (refused == nullptr) {
        GvxConfigMgr()->LoadCloudConf();  // the run mode says where the key lies
        OMLoggerOptions faults;
        faults.level = OM_LOG_ERR;
        OMAdapter::getInstance()->setLogger(MakeDefaultLogger(faults, nullptr));
        if (GvxSecurityMgr()->EncryptString(secret, enciphered, sizeof(enciphered)) != 0) {
            refused = "there is no key; the line before says why";
        }
        GvxSecurityMgr()->UnInit();
    }
    memset_s(secret, sizeof(secret), 0, sizeof(secret));
    if (refused != nullptr) {
        std::fprintf(stderr, "gvxctl: %s\n", refused);
        return kExitRefused;
    }
    return std::printf("%s\n", enciphered) > 0 && std::fflush(stdout) == 0 ? kExitOk : kExitRefused;
}

}  // namespace gvxctl
