#include "phonebook_lock.h"

#include "log_line.h"
#include "outside/Helper.h"
#include "owners.h"

void chkRasPbFile() {
    const Owner<KernelObject> mutex(OpenMutexA(SYNCHRONIZE, FALSE, "RasPbFile"));
    if (!mutex) {
        const DWORD error = GetLastError();
        LOG_LINE(2, "Can't open mutex RasPbFile, error:" + int2stru(error));
        return;
    }
    const DWORD state = WaitForSingleObject(mutex.get(), 0);
    const bool acquired = state == WAIT_OBJECT_0 || state == WAIT_ABANDONED;
    const Owner<OwnedMutex> owned(acquired ? mutex.get() : nullptr);
    if (state == WAIT_ABANDONED)
        LOG_LINE(2, "The RasPbFile is ABANDONED");
    else if (!owned)
        LOG_LINE(2, "Wait RasPbFile return " + int2stru(state));
}
