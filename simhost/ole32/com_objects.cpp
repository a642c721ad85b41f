// The machine's table of live COM objects and their reference counts.
#include "simhost/ole32/com_objects.h"

#include "simhost/core/host.h"

#include <memory>
#include <mutex>

namespace simhost {
namespace ole32 {
namespace {

struct Entry {
    const void* identity = nullptr;
    std::unique_ptr<TableEntry> owner;
    const char* interfaceName = "";
    std::wstring description;
    bool proxy = false;
    ULONG references = 0;
};

// In the order the objects were made; the machine holds few at a time.
struct ObjectTable {
    std::mutex mutex;
    std::vector<Entry> entries;

    Entry* find(const void* identity) {
        for (Entry& entry : entries)
            if (entry.identity == identity) return &entry;
        return nullptr;
    }
};

ObjectTable& table() { return Host::get().state<ObjectTable>(); }

}  // namespace

void enterObject(const void* identity, TableEntry* owner, const char* interfaceName, const std::wstring& description,
                 bool proxy) {
    ObjectTable& objects = table();
    std::lock_guard<std::mutex> lock(objects.mutex);
    objects.entries.push_back(
        Entry{identity, std::unique_ptr<TableEntry>(owner), interfaceName, description, proxy, 1});
}

bool isProxy(const void* identity) {
    ObjectTable& objects = table();
    std::lock_guard<std::mutex> lock(objects.mutex);
    Entry* entry = objects.find(identity);
    return entry && entry->proxy;
}

ULONG addReference(const void* identity) {
    ObjectTable& objects = table();
    std::lock_guard<std::mutex> lock(objects.mutex);
    Entry* entry = objects.find(identity);
    return entry ? ++entry->references : 0;
}

// The object is destroyed after the lock is let go, so that its destructor
// may use the table.
ULONG releaseReference(const void* identity) {
    std::unique_ptr<TableEntry> destroyed;
    ObjectTable& objects = table();
    std::lock_guard<std::mutex> lock(objects.mutex);
    Entry* entry = objects.find(identity);
    if (!entry) return 0;
    ULONG left = --entry->references;
    if (left == 0) {
        destroyed = std::move(entry->owner);
        objects.entries.erase(objects.entries.begin() + (entry - objects.entries.data()));
    }
    return left;
}

std::vector<LiveObject> liveObjects() {
    ObjectTable& objects = table();
    std::lock_guard<std::mutex> lock(objects.mutex);
    std::vector<LiveObject> live;
    for (const Entry& entry : objects.entries)
        live.push_back({entry.interfaceName, entry.description, entry.references});
    return live;
}

}  // namespace ole32
}  // namespace simhost
