#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace BP {
struct LinkProgress;
}

// What is known of one platform link. A plain record; whoever holds it guards it.
class CGvxConnection {
public:
    CGvxConnection() = default;
    CGvxConnection(const CGvxConnection&) = default;
    CGvxConnection& operator=(const CGvxConnection&) = default;
    virtual ~CGvxConnection() = default;

    bool IsConnected() const { return m_bConnected; }
    void SetConnected(bool connected) { m_bConnected = connected; }

    const std::string& GetLinkId() const { return m_strLinkId; }
    void SetLinkId(const std::string& linkId) { m_strLinkId = linkId; }

    // One of the element codes of gvx_connection_mgr.h.
    std::uint32_t GetElementType() const { return m_uElementType; }
    void SetElementType(std::uint32_t elementType) { m_uElementType = elementType; }

    const std::string& GetElementIP() const { return m_strElementIP; }
    void SetElementIP(const std::string& elementIP) { m_strElementIP = elementIP; }

    // Which of the connections that have had this identifier it is; null where nothing but the identifier is known.
    const std::shared_ptr<const BP::LinkProgress>& GetProgress() const { return m_progress; }
    void SetProgress(std::shared_ptr<const BP::LinkProgress> progress) { m_progress = std::move(progress); }

    std::uint32_t GetElementPort() const { return m_uElementPort; }
    void SetElementPort(std::uint32_t elementPort) { m_uElementPort = elementPort; }

private:
    std::string m_strElementIP;
    std::string m_strLinkId;
    std::uint32_t m_uElementType = 0;
    bool m_bConnected = false;
    std::uint32_t m_uElementPort = 0;
    std::shared_ptr<const BP::LinkProgress> m_progress;
};
