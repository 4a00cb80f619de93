#include "rights.h"

#include <windows.h>

bool hasAdministratorRights() {
    BYTE administrators[SECURITY_MAX_SID_SIZE];
    DWORD size = sizeof administrators;
    BOOL isMember = FALSE;
    return CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, administrators, &size) &&
           CheckTokenMembership(nullptr, administrators, &isMember) && isMember;
}
