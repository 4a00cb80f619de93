#pragma once

// PPTP's control port.
inline constexpr unsigned short pptpControlPort = 1723;
