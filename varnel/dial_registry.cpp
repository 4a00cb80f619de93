#include "Varnel.h"
#include "owners.h"

std::map<unsigned int, boost::shared_ptr<DIALUP_CALLBACK::ITEM>> DIALUP_CALLBACK::items;
boost::recursive_mutex DIALUP_CALLBACK::itemsLock;

namespace {

// Holds the registry's lock for a scope. Waiting within the mutex takes an event, which the system may
// refuse; the exception would end the host, since attempts are
// removed by a destructor. Nobody holds the lock for long.
class RegistryLock {
  public:
    explicit RegistryLock(boost::recursive_mutex& lock) : mutex(lock) {
        while (!mutex.try_lock())
            Sleep(1);
    }
    ~RegistryLock() { mutex.unlock(); }
    RegistryLock(const RegistryLock&) = delete;
    RegistryLock& operator=(const RegistryLock&) = delete;

  private:
    boost::recursive_mutex& mutex;
};

} // namespace

DIALUP_CALLBACK::ITEM::ITEM(unsigned int id)
    : callbackId(id), hConn(nullptr), hEvent(CreateEventA(nullptr, TRUE, FALSE, nullptr)), error(0),
      error2(0) {}

DIALUP_CALLBACK::ITEM::~ITEM() {
    const Owner<KernelObject> closed(hEvent);
}

boost::shared_ptr<DIALUP_CALLBACK::ITEM> DIALUP_CALLBACK::addItem(unsigned int callbackId) {
    const RegistryLock locked(itemsLock);
    boost::shared_ptr<ITEM> item(new ITEM(callbackId));
    items[callbackId] = item;
    return item;
}

boost::shared_ptr<DIALUP_CALLBACK::ITEM> DIALUP_CALLBACK::findItem(unsigned int callbackId) {
    const RegistryLock locked(itemsLock);
    const auto found = items.find(callbackId);
    return found == items.end() ? boost::shared_ptr<ITEM>() : found->second;
}

void DIALUP_CALLBACK::removeItem(unsigned int callbackId) {
    const RegistryLock locked(itemsLock);
    items.erase(callbackId);
}

void DIALUP_CALLBACK::clearItems() {
    const RegistryLock locked(itemsLock);
    items.clear();
}
