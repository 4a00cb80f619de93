#pragma once

// Whether the program has an administrator's rights in full, which with user account control an
// administrator's own programs may lack.
bool hasAdministratorRights();
