#include "Varnel.h"
#include "owners.h"

std::map<unsigned int, boost::shared_ptr<DIALUP_CALLBACK::ITEM>> DIALUP_CALLBACK::items;
boost::recursive_mutex DIALUP_CALLBACK::itemsLock;

DIALUP_CALLBACK::ITEM::ITEM(unsigned int callbackId_)
    : callbackId(callbackId_), hConn(nullptr), hEvent(CreateEventA(nullptr, TRUE, FALSE, nullptr)), error(0),
      error2(0) {}

DIALUP_CALLBACK::ITEM::~ITEM() {
    const OWNER<KERNEL_OBJECT> closed(hEvent);
}

boost::shared_ptr<DIALUP_CALLBACK::ITEM> DIALUP_CALLBACK::addItem(unsigned int callbackId) {
    const boost::recursive_mutex::scoped_lock locked(itemsLock);
    boost::shared_ptr<ITEM> item(new ITEM(callbackId));
    items[callbackId] = item;
    return item;
}

boost::shared_ptr<DIALUP_CALLBACK::ITEM> DIALUP_CALLBACK::findItem(unsigned int callbackId) {
    const boost::recursive_mutex::scoped_lock locked(itemsLock);
    const auto found = items.find(callbackId);
    return found == items.end() ? boost::shared_ptr<ITEM>() : found->second;
}

void DIALUP_CALLBACK::removeItem(unsigned int callbackId) {
    const boost::recursive_mutex::scoped_lock locked(itemsLock);
    items.erase(callbackId);
}

void DIALUP_CALLBACK::clearItems() {
    const boost::recursive_mutex::scoped_lock locked(itemsLock);
    items.clear();
}
