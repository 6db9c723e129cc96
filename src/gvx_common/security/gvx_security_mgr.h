#pragma once

#include <cstdint>
#include <memory>
#include <string>

// Stored passwords: enciphers and deciphers them (AES-256-GCM, NIST SP 800-38D) under the key of this host.
//
// The key is gvx.key, 32 random bytes, in /opt/kspedge for the cloud's edge and in /opt/ksp for every other run mode,
// below the root prefix. It is made when it is first needed and missing. The file belongs to its owner alone (mode
// 0600); one that others may read, that is no regular file, has another length or holds nothing but zeroes is refused
// with a log line and left as it is. It is watched, and taken again when it is replaced. gvx_former.key beside it holds
// the keys that were in force, the newest first, so that what was enciphered under an earlier key still opens.
//
// Any thread may call, at any time.
class CSecurityMgr {
public:
    // Bytes of the text that EncryptString gives for so many bytes of clear text, terminator included.
    static constexpr std::uint32_t EncipheredSize(std::uint32_t clearBytes) {
        return (clearBytes + kOverheadBytes + 2) / 3 * 4 + 1;
    }
    static constexpr std::uint32_t kHandleSize = 26;  // of a handle, terminator included

    // The singleton; never null, alive until the process ends.
    static CSecurityMgr* Instance();

    CSecurityMgr();
    ~CSecurityMgr();
    CSecurityMgr(const CSecurityMgr&) = delete;
    CSecurityMgr& operator=(const CSecurityMgr&) = delete;

    // Takes a key that is there now instead of at first need, so that a fault shows at start. 0, also when there is no
    // file yet; 1 when the file is refused. Once it is mended, the next use takes it.
    int Init();
    // Looks at the key files without making or taking any. False when one of them would be refused; file and why name
    // it then.
    static bool LookAtKeyFiles(std::string& file, std::string& why);
    // Ends the watching and wipes keys and held passwords. What comes after begins anew.
    void UnInit();

    // Gives the clear text of what EncryptString or Hold gave, terminated; size is that of clear. 0; 2 for a null
    // pointer or a size of 0; 1 when there is no key, none of the keys opens the text, or it does not fit. clear then
    // holds an empty text. The caller wipes clear (memset_s) after use.
    int DecryptString(const char* enciphered, char* clear, std::uint32_t size);

    // Gives the form that is stored: base64, EncipheredSize bytes; the same text enciphers differently each time. 0;
    // 2 and 1 as above, enciphered then empty. Wiping clear is the caller's.
    int EncryptString(const char* clear, char* enciphered, std::uint32_t size);

    // A short stand-in for an enciphered password that is too long for a field of fixed size: kHandleSize bytes
    // whatever the password's length. DecryptString opens it until Release, in this process alone. It is the
    // enciphered form that is kept. 0; 2 for a null pointer; 1 when size is too small, the text is no enciphered
    // one or there are no random bytes.
    int Hold(const char* enciphered, char* handle, std::uint32_t size);
    // Forgets a handle; other texts and null do nothing.
    void Release(const char* handle);

private:
    struct State;
    static constexpr std::uint32_t kOverheadBytes = 12 + 16;  // nonce and tag

    void StoreKeysLocked(const std::string& folder);
    bool TakeKeyLocked(const std::string& folder, bool make);
    bool ReadyLocked();
    void OnKeyFileChanged();

    const std::unique_ptr<State> m_state;
};

// The same object as CSecurityMgr::Instance().
CSecurityMgr* GvxSecurityMgr();
