// The network adapters that give the service its ports for tunnels.
#pragma once

#include <windows.h>

#include <optional>

struct Miniport {
    std::optional<DWORD> ports; // nothing where the registry does not say
    std::optional<DWORD> mostPorts;
};

inline constexpr const wchar_t* pptpMiniport = L"ms_pptpminiport";
inline constexpr const wchar_t* l2tpMiniport = L"ms_l2tpminiport";

// The first adapter with that device id.
std::optional<Miniport> findMiniport(const wchar_t* deviceId);
