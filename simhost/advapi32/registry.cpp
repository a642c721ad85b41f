// The registry of the simulated machine: two hives, HKEY_LOCAL_MACHINE and
// HKEY_USERS, of keys with values. HKEY_CLASSES_ROOT is the view of
// HKLM\SOFTWARE\Classes and HKEY_CURRENT_USER that of HKU\S-1-5-18, the
// profile of the local system account a service runs under. The machine has
// one registry view: the 64-bit view that the WOW64 flags and access rights
// name is the only one, and asking for the 32-bit view reads it too.
//
// The registry calls answer their error code and leave the thread's last
// error alone, as Windows documents for them.
#include "simhost/advapi32/advapi32.h"
#include "simhost/advapi32/advapi32_internal.h"
#include "simhost/core/host.h"
#include "simhost/core/text.h"
#include "simhost/kernel32/objects.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <unordered_map>

namespace simhost {
namespace advapi32 {
namespace {

constexpr GenericMapping kKeyMapping = {KEY_READ, KEY_WRITE, KEY_EXECUTE, KEY_ALL_ACCESS};

struct Key {
    std::wstring name;
    bool hive = false;
    bool deleted = false;
    std::weak_ptr<Key> parent;
    std::map<std::wstring, std::shared_ptr<Key>> subkeys;  // by folded name
    std::vector<RegistryValueEntry> values;                 // in order of creation

    RegistryValueEntry* findValue(const std::wstring& valueName) {
        auto it = valueNamed(valueName);
        return it == values.end() ? nullptr : &*it;
    }

    // False when the key has no value of that name.
    bool eraseValue(const std::wstring& valueName) {
        auto it = valueNamed(valueName);
        if (it == values.end()) return false;
        values.erase(it);
        return true;
    }

private:
    std::vector<RegistryValueEntry>::iterator valueNamed(const std::wstring& valueName) {
        return std::find_if(values.begin(), values.end(),
                            [&](const RegistryValueEntry& value) { return sameIgnoringCase(value.name, valueName); });
    }
};

using KeyPtr = std::shared_ptr<Key>;

KeyPtr makeHive(const wchar_t* name) {
    auto hive = std::make_shared<Key>();
    hive->name = name;
    hive->hive = true;
    return hive;
}

struct OpenKey {
    KeyPtr key;
    REGSAM access;
};

struct RegistryState {
    std::mutex mutex;
    KeyPtr machine = makeHive(L"HKEY_LOCAL_MACHINE");
    KeyPtr users = makeHive(L"HKEY_USERS");
    std::unordered_map<HKEY, OpenKey> handles;

    RegistryState();
};

template <class Work>
auto withRegistry(Work work) {
    RegistryState& state = Host::get().state<RegistryState>();
    std::lock_guard<std::mutex> hold(state.mutex);
    return work(state);
}

std::vector<std::wstring> pathComponents(const std::wstring& path) {
    return splitText(path, L'\\', EmptyPieces::Drop);
}

KeyPtr findSubkey(const Key& key, const std::wstring& name) {
    auto it = key.subkeys.find(foldCase(name));
    return it == key.subkeys.end() ? nullptr : it->second;
}

KeyPtr addSubkey(const KeyPtr& parent, const std::wstring& name) {
    auto child = std::make_shared<Key>();
    child->name = name;
    child->parent = parent;
    parent->subkeys[foldCase(name)] = child;
    return child;
}

// The key `path` names below `base`, or null when a key on the way is missing.
KeyPtr findPath(KeyPtr base, const std::wstring& path) {
    for (const std::wstring& component : pathComponents(path)) {
        base = findSubkey(*base, component);
        if (!base) return nullptr;
    }
    return base;
}

struct CreatedKey {
    KeyPtr key;
    LSTATUS error = ERROR_SUCCESS;
    bool created = false;
};

// Opens or makes every key of `path` below `base`. A new key right below a
// hive root is refused with ERROR_ACCESS_DENIED unless `mayCreateTopLevel`:
// applications cannot add keys there, the host can.
CreatedKey createPath(KeyPtr base, const std::wstring& path, bool mayCreateTopLevel) {
    CreatedKey result{base};
    for (const std::wstring& component : pathComponents(path)) {
        KeyPtr next = findSubkey(*result.key, component);
        if (!next) {
            if (result.key->hive && !mayCreateTopLevel) return {nullptr, ERROR_ACCESS_DENIED};
            next = addSubkey(result.key, component);
            result.created = true;
        }
        result.key = next;
    }
    return result;
}

RegistryState::RegistryState() {
    createPath(machine, L"SOFTWARE\\Classes", true);
    createPath(machine, L"SYSTEM\\CurrentControlSet\\Services", true);
    createPath(users, L".DEFAULT", true);
    createPath(users, L"S-1-5-18", true);
}

bool isPredefined(HKEY key) {
    return key == HKEY_LOCAL_MACHINE || key == HKEY_USERS || key == HKEY_CLASSES_ROOT || key == HKEY_CURRENT_USER;
}

// The key a predefined handle stands for; the two views are made again if
// the host deleted them.
KeyPtr predefinedKey(RegistryState& state, HKEY key) {
    if (key == HKEY_LOCAL_MACHINE) return state.machine;
    if (key == HKEY_USERS) return state.users;
    if (key == HKEY_CLASSES_ROOT) return createPath(state.machine, L"SOFTWARE\\Classes", true).key;
    return createPath(state.users, L"S-1-5-18", true).key;
}

struct ResolvedKey {
    KeyPtr key;
    REGSAM access = 0;
    LSTATUS error = ERROR_SUCCESS;
};

// The key behind a handle and the rights it grants. Predefined keys grant
// all rights; a closed or unknown handle is ERROR_INVALID_HANDLE, one whose
// key was deleted ERROR_KEY_DELETED.
ResolvedKey resolveHandle(RegistryState& state, HKEY key) {
    if (isPredefined(key)) return {predefinedKey(state, key), KEY_ALL_ACCESS};
    auto it = state.handles.find(key);
    if (it == state.handles.end()) return {nullptr, 0, ERROR_INVALID_HANDLE};
    if (it->second.key->deleted) return {nullptr, 0, ERROR_KEY_DELETED};
    return {it->second.key, it->second.access};
}

// The open key for a value operation that needs `needed` on the handle.
ResolvedKey resolveForAccess(RegistryState& state, HKEY key, REGSAM needed) {
    ResolvedKey resolved = resolveHandle(state, key);
    if (!resolved.error && !grants(resolved.access, needed)) return {nullptr, 0, ERROR_ACCESS_DENIED};
    return resolved;
}

HKEY newHandle(RegistryState& state, KeyPtr key, REGSAM desired) {
    HKEY handle = reinterpret_cast<HKEY>(reserveHandleValue());
    state.handles[handle] = {std::move(key), mapGenericAccess(desired, kKeyMapping)};
    return handle;
}

void storeValue(Key& key, const std::wstring& valueName, DWORD type, std::vector<BYTE> data) {
    if (RegistryValueEntry* existing = key.findValue(valueName)) {
        existing->type = type;
        existing->data = std::move(data);
        return;
    }
    key.values.push_back({valueName, type, std::move(data)});
}

void markTreeDeleted(Key& key) {
    key.deleted = true;
    for (auto& subkey : key.subkeys) markTreeDeleted(*subkey.second);
    key.subkeys.clear();
}

// Takes a key and all below it out of the registry. Open handles keep the
// key object, which answers ERROR_KEY_DELETED from then on.
void detachTree(const KeyPtr& key) {
    if (KeyPtr parent = key->parent.lock()) parent->subkeys.erase(foldCase(key->name));
    markTreeDeleted(*key);
}

// ---- Strings in value data ----

bool isStringType(DWORD type) { return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ; }

std::vector<WCHAR> charactersOf(const std::vector<BYTE>& data) {
    std::vector<WCHAR> characters((data.size() + sizeof(WCHAR) - 1) / sizeof(WCHAR), L'\0');
    if (!data.empty()) std::memcpy(characters.data(), data.data(), data.size());
    return characters;
}

std::vector<BYTE> bytesOf(const std::vector<WCHAR>& characters) {
    std::vector<BYTE> data(characters.size() * sizeof(WCHAR));
    if (!data.empty()) std::memcpy(data.data(), characters.data(), data.size());
    return data;
}

// String data as RegGetValueW delivers it: ended by a NUL, and a list by a
// second NUL, added when the stored data lacks them.
std::vector<WCHAR> terminated(std::vector<WCHAR> characters, DWORD type) {
    if (characters.empty() || characters.back() != L'\0') characters.push_back(L'\0');
    bool listNeedsSecondNul = type == REG_MULTI_SZ && characters.size() > 1 && characters[characters.size() - 2];
    if (listNeedsSecondNul) characters.push_back(L'\0');
    return characters;
}

// The environment of a service of the machine, for REG_EXPAND_SZ values.
struct EnvironmentVariable {
    const wchar_t* name;
    const wchar_t* value;
};
constexpr EnvironmentVariable kServiceEnvironment[] = {
    {L"ALLUSERSPROFILE", L"C:\\ProgramData"},
    {L"ProgramData", L"C:\\ProgramData"},
    {L"ProgramFiles", L"C:\\Program Files"},
    {L"ProgramFiles(x86)", L"C:\\Program Files (x86)"},
    {L"ProgramW6432", L"C:\\Program Files"},
    {L"SystemDrive", L"C:"},
    {L"SystemRoot", L"C:\\Windows"},
    {L"windir", L"C:\\Windows"},
    {L"TEMP", L"C:\\Windows\\TEMP"},
    {L"TMP", L"C:\\Windows\\TEMP"},
    {L"USERPROFILE", L"C:\\Windows\\system32\\config\\systemprofile"},
};

const wchar_t* environmentValue(const std::wstring& name) {
    for (const EnvironmentVariable& variable : kServiceEnvironment)
        if (sameIgnoringCase(name, variable.name)) return variable.value;
    return nullptr;
}

// Replaces each %NAME% of a known variable with its value; an unknown one
// stays as it is written, as ExpandEnvironmentStrings leaves it.
std::wstring expandEnvironment(const std::wstring& text) {
    std::wstring expanded;
    size_t position = 0;
    while (position < text.size()) {
        size_t open = text.find(L'%', position);
        size_t close = open == std::wstring::npos ? std::wstring::npos : text.find(L'%', open + 1);
        if (close == std::wstring::npos) break;
        expanded.append(text, position, open - position);
        const wchar_t* value = environmentValue(text.substr(open + 1, close - open - 1));
        if (value) {
            expanded += value;
            position = close + 1;
        } else {
            expanded.append(text, open, close - open);
            position = close;
        }
    }
    if (position < text.size()) expanded.append(text, position, std::wstring::npos);
    return expanded;
}

std::vector<WCHAR> expandedCharacters(const std::vector<WCHAR>& characters) {
    std::wstring text(characters.data());  // the characters end with a NUL
    std::wstring expanded = expandEnvironment(text);
    return std::vector<WCHAR>(expanded.c_str(), expanded.c_str() + expanded.size() + 1);
}

// ---- Reading values ----

struct DeliveredValue {
    DWORD type;
    std::vector<BYTE> data;
};

// What RegGetValueW hands out for a stored value: strings terminated, and a
// REG_EXPAND_SZ expanded and reported as REG_SZ unless RRF_NOEXPAND is set.
DeliveredValue deliveredForm(const RegistryValueEntry& value, DWORD flags) {
    if (!isStringType(value.type)) return {value.type, value.data};
    std::vector<WCHAR> characters = terminated(charactersOf(value.data), value.type);
    if (value.type == REG_EXPAND_SZ && !(flags & RRF_NOEXPAND))
        return {REG_SZ, bytesOf(expandedCharacters(characters))};
    return {value.type, bytesOf(characters)};
}

DWORD typeFilterBit(DWORD type) {
    switch (type) {
    case REG_NONE: return RRF_RT_REG_NONE;
    case REG_SZ: return RRF_RT_REG_SZ;
    case REG_EXPAND_SZ: return RRF_RT_REG_EXPAND_SZ;
    case REG_BINARY: return RRF_RT_REG_BINARY;
    case REG_DWORD: return RRF_RT_REG_DWORD;
    case REG_MULTI_SZ: return RRF_RT_REG_MULTI_SZ;
    case REG_QWORD: return RRF_RT_REG_QWORD;
    default: return 0;
    }
}

// ERROR_UNSUPPORTED_TYPE for a type the flags do not admit, and
// ERROR_DATATYPE_MISMATCH for REG_BINARY data of another size than the
// 32 or 64 bits that RRF_RT_DWORD or RRF_RT_QWORD ask for.
LSTATUS checkTypeFilter(const DeliveredValue& value, DWORD flags) {
    DWORD admitted = flags & RRF_RT_ANY;
    if (admitted != RRF_RT_ANY && !(admitted & typeFilterBit(value.type))) return ERROR_UNSUPPORTED_TYPE;
    if (value.type != REG_BINARY) return ERROR_SUCCESS;
    if (admitted == RRF_RT_DWORD && value.data.size() != sizeof(DWORD)) return ERROR_DATATYPE_MISMATCH;
    if (admitted == RRF_RT_QWORD && value.data.size() != sizeof(ULONGLONG)) return ERROR_DATATYPE_MISMATCH;
    return ERROR_SUCCESS;
}

// The size protocol both reading calls share: no buffer answers the size;
// a buffer too small answers ERROR_MORE_DATA with the size needed.
LSTATUS deliverData(const DeliveredValue& value, LPDWORD type, BYTE* buffer, LPDWORD size) {
    DWORD needed = static_cast<DWORD>(value.data.size());
    if (type) *type = value.type;
    if (!buffer) {
        if (size) *size = needed;
        return ERROR_SUCCESS;
    }
    LSTATUS result = *size < needed ? ERROR_MORE_DATA : ERROR_SUCCESS;
    if (result == ERROR_SUCCESS && needed) std::memcpy(buffer, value.data.data(), needed);
    *size = needed;
    return result;
}

LSTATUS validateGetValueFlags(DWORD flags, const void* data, const DWORD* size) {
    DWORD admitted = flags & RRF_RT_ANY;
    bool bothViews = (flags & RRF_SUBKEY_WOW6464KEY) && (flags & RRF_SUBKEY_WOW6432KEY);
    // A restriction to REG_EXPAND_SZ alone can only be met unexpanded.
    bool expandWithoutNoExpand = admitted == RRF_RT_REG_EXPAND_SZ && !(flags & RRF_NOEXPAND);
    if (!admitted || bothViews || expandWithoutNoExpand || (data && !size)) return ERROR_INVALID_PARAMETER;
    return ERROR_SUCCESS;
}

// The key RegGetValueW reads from: the handle's own key, which must grant
// KEY_QUERY_VALUE, or the subkey below it, opened for reading.
ResolvedKey keyToRead(RegistryState& state, HKEY key, LPCWSTR subKey) {
    if (!subKey || !*subKey) return resolveForAccess(state, key, KEY_QUERY_VALUE);
    ResolvedKey base = resolveHandle(state, key);
    if (base.error) return base;
    KeyPtr found = findPath(base.key, subKey);
    if (!found) return {nullptr, 0, ERROR_FILE_NOT_FOUND};
    return {found, KEY_QUERY_VALUE};
}

LSTATUS getValue(HKEY key, LPCWSTR subKey, LPCWSTR valueName, DWORD flags, LPDWORD type, PVOID data,
                 LPDWORD size) {
    if (DWORD error = injectedFailure("RegGetValueW")) return static_cast<LSTATUS>(error);
    if (LSTATUS invalid = validateGetValueFlags(flags, data, size)) return invalid;
    return withRegistry([&](RegistryState& state) -> LSTATUS {
        ResolvedKey source = keyToRead(state, key, subKey);
        if (source.error) return source.error;
        const RegistryValueEntry* stored = source.key->findValue(textOf(valueName));
        if (!stored) return ERROR_FILE_NOT_FOUND;
        DeliveredValue value = deliveredForm(*stored, flags);
        if (LSTATUS mismatch = checkTypeFilter(value, flags)) {
            // pdwType receives the type of the data stored and pcbData its
            // size; a type the flags refuse changes neither, only the
            // buffer stays unwritten.
            if (type) *type = value.type;
            if (size) *size = static_cast<DWORD>(value.data.size());
            return mismatch;
        }
        return deliverData(value, type, static_cast<BYTE*>(data), size);
    });
}

// ---- Test and host API helpers ----

void requirePredefined(HKEY root) {
    if (!isPredefined(root)) throw std::invalid_argument("not a predefined registry key");
}

template <class Work>
auto withHostKey(HKEY root, const std::wstring& keyPath, Work work) {
    requirePredefined(root);
    return withRegistry([&](RegistryState& state) { return work(findPath(predefinedKey(state, root), keyPath)); });
}

void appendTree(const Key& key, const std::wstring& path, std::vector<RegistryKeyEntry>& out) {
    out.push_back({path, key.values});
    for (const auto& subkey : key.subkeys) appendTree(*subkey.second, path + L"\\" + subkey.second->name, out);
}

}  // namespace

std::vector<BYTE> stringValueData(const std::wstring& text) {
    return bytesOf(std::vector<WCHAR>(text.c_str(), text.c_str() + text.size() + 1));
}

std::vector<BYTE> multiStringValueData(const std::vector<std::wstring>& strings) {
    std::vector<WCHAR> characters;
    for (const std::wstring& text : strings)
        characters.insert(characters.end(), text.c_str(), text.c_str() + text.size() + 1);
    characters.push_back(L'\0');
    return bytesOf(characters);
}

void createRegistryKey(HKEY root, const std::wstring& keyPath) {
    requirePredefined(root);
    withRegistry([&](RegistryState& state) { createPath(predefinedKey(state, root), keyPath, true); });
}

void setRegistryValue(HKEY root, const std::wstring& keyPath, const std::wstring& valueName, DWORD type,
                      std::vector<BYTE> data) {
    requirePredefined(root);
    withRegistry([&](RegistryState& state) {
        KeyPtr key = createPath(predefinedKey(state, root), keyPath, true).key;
        storeValue(*key, valueName, type, std::move(data));
    });
}

void setRegistryString(HKEY root, const std::wstring& keyPath, const std::wstring& valueName,
                       const std::wstring& text) {
    setRegistryValue(root, keyPath, valueName, REG_SZ, stringValueData(text));
}

void setRegistryExpandString(HKEY root, const std::wstring& keyPath, const std::wstring& valueName,
                             const std::wstring& text) {
    setRegistryValue(root, keyPath, valueName, REG_EXPAND_SZ, stringValueData(text));
}

void setRegistryMultiString(HKEY root, const std::wstring& keyPath, const std::wstring& valueName,
                            const std::vector<std::wstring>& strings) {
    setRegistryValue(root, keyPath, valueName, REG_MULTI_SZ, multiStringValueData(strings));
}

void setRegistryDword(HKEY root, const std::wstring& keyPath, const std::wstring& valueName, DWORD value) {
    const BYTE* bytes = reinterpret_cast<const BYTE*>(&value);
    setRegistryValue(root, keyPath, valueName, REG_DWORD, std::vector<BYTE>(bytes, bytes + sizeof value));
}

void setRegistryQword(HKEY root, const std::wstring& keyPath, const std::wstring& valueName, ULONGLONG value) {
    const BYTE* bytes = reinterpret_cast<const BYTE*>(&value);
    setRegistryValue(root, keyPath, valueName, REG_QWORD, std::vector<BYTE>(bytes, bytes + sizeof value));
}

void setRegistryBinary(HKEY root, const std::wstring& keyPath, const std::wstring& valueName,
                       std::vector<BYTE> data) {
    setRegistryValue(root, keyPath, valueName, REG_BINARY, std::move(data));
}

bool deleteRegistryValue(HKEY root, const std::wstring& keyPath, const std::wstring& valueName) {
    return withHostKey(root, keyPath, [&](const KeyPtr& key) { return key && key->eraseValue(valueName); });
}

bool deleteRegistryTree(HKEY root, const std::wstring& keyPath) {
    return withHostKey(root, keyPath, [&](const KeyPtr& key) {
        if (!key || key->hive) return false;
        detachTree(key);
        return true;
    });
}

bool registryKeyExists(HKEY root, const std::wstring& keyPath) {
    return withHostKey(root, keyPath, [](const KeyPtr& key) { return key != nullptr; });
}

std::optional<RegistryValue> registryValue(HKEY root, const std::wstring& keyPath, const std::wstring& valueName) {
    return withHostKey(root, keyPath, [&](const KeyPtr& key) -> std::optional<RegistryValue> {
        const RegistryValueEntry* value = key ? key->findValue(valueName) : nullptr;
        if (!value) return std::nullopt;
        return RegistryValue{value->type, value->data};
    });
}

std::optional<std::wstring> registryString(HKEY root, const std::wstring& keyPath, const std::wstring& valueName) {
    std::optional<RegistryValue> value = registryValue(root, keyPath, valueName);
    if (!value || (value->type != REG_SZ && value->type != REG_EXPAND_SZ)) return std::nullopt;
    return std::wstring(terminated(charactersOf(value->data), value->type).data());
}

std::optional<DWORD> registryDword(HKEY root, const std::wstring& keyPath, const std::wstring& valueName) {
    std::optional<RegistryValue> value = registryValue(root, keyPath, valueName);
    if (!value || value->type != REG_DWORD || value->data.size() != sizeof(DWORD)) return std::nullopt;
    DWORD number;
    std::memcpy(&number, value->data.data(), sizeof number);
    return number;
}

std::optional<std::vector<std::wstring>> registryMultiString(HKEY root, const std::wstring& keyPath,
                                                             const std::wstring& valueName) {
    std::optional<RegistryValue> value = registryValue(root, keyPath, valueName);
    if (!value || value->type != REG_MULTI_SZ) return std::nullopt;
    std::vector<WCHAR> characters = terminated(charactersOf(value->data), REG_MULTI_SZ);
    std::vector<std::wstring> strings;
    for (const WCHAR* text = characters.data(); *text; text += strings.back().size() + 1) strings.emplace_back(text);
    return strings;
}

std::optional<HKEY> predefinedKeyNamed(const std::wstring& name) {
    struct RootName {
        const wchar_t* longName;
        const wchar_t* shortName;
        HKEY key;
    };
    const RootName roots[] = {{L"HKEY_LOCAL_MACHINE", L"HKLM", HKEY_LOCAL_MACHINE},
                              {L"HKEY_CURRENT_USER", L"HKCU", HKEY_CURRENT_USER},
                              {L"HKEY_USERS", L"HKU", HKEY_USERS},
                              {L"HKEY_CLASSES_ROOT", L"HKCR", HKEY_CLASSES_ROOT}};
    for (const RootName& root : roots)
        if (sameIgnoringCase(name, root.longName) || sameIgnoringCase(name, root.shortName)) return root.key;
    return std::nullopt;
}

std::vector<RegistryKeyEntry> dumpRegistry() {
    return withRegistry([](RegistryState& state) {
        std::vector<RegistryKeyEntry> entries;
        appendTree(*state.machine, state.machine->name, entries);
        appendTree(*state.users, state.users->name, entries);
        return entries;
    });
}

size_t openRegistryKeyCount() {
    return withRegistry([](RegistryState& state) { return state.handles.size(); });
}

}  // namespace advapi32
}  // namespace simhost

using namespace simhost::advapi32;

// Opens an existing key. As documented, a null subkey on a predefined key
// answers that predefined handle itself, as does an empty subkey on
// HKEY_CLASSES_ROOT; otherwise the result is a new handle, closed with
// RegCloseKey. A missing key is ERROR_FILE_NOT_FOUND.
LSTATUS WINAPI RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD /*options*/, REGSAM desired, PHKEY result) {
    if (DWORD error = simhost::injectedFailure("RegOpenKeyExW")) return static_cast<LSTATUS>(error);
    if (!result) return ERROR_INVALID_PARAMETER;
    return withRegistry([&](RegistryState& state) -> LSTATUS {
        ResolvedKey base = resolveHandle(state, key);
        if (base.error) return base.error;
        bool samePredefined = (!subKey && isPredefined(key) && key != HKEY_CLASSES_ROOT) ||
                              (subKey && !*subKey && key == HKEY_CLASSES_ROOT);
        if (samePredefined) {
            *result = key;
            return ERROR_SUCCESS;
        }
        KeyPtr found = findPath(base.key, textOf(subKey));
        if (!found) return ERROR_FILE_NOT_FOUND;
        *result = newHandle(state, found, desired);
        return ERROR_SUCCESS;
    });
}

// Opens the key, making it and every missing key on its path. Whether the
// handle's rights allow creation is not asked, as Windows checks the key's
// security instead; keys cannot be added right below HKEY_LOCAL_MACHINE or
// HKEY_USERS (ERROR_ACCESS_DENIED). Volatile keys are kept like the others.
LSTATUS WINAPI RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD reserved, LPWSTR /*keyClass*/, DWORD /*options*/,
                               REGSAM desired, LPSECURITY_ATTRIBUTES /*securityAttributes*/, PHKEY result,
                               LPDWORD disposition) {
    if (DWORD error = simhost::injectedFailure("RegCreateKeyExW")) return static_cast<LSTATUS>(error);
    if (!subKey || reserved || !result) return ERROR_INVALID_PARAMETER;
    return withRegistry([&](RegistryState& state) -> LSTATUS {
        ResolvedKey base = resolveHandle(state, key);
        if (base.error) return base.error;
        CreatedKey made = createPath(base.key, subKey, false);
        if (made.error) return made.error;
        *result = newHandle(state, made.key, desired);
        if (disposition) *disposition = made.created ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
        return ERROR_SUCCESS;
    });
}

// Closing a predefined key succeeds and changes nothing.
LSTATUS WINAPI RegCloseKey(HKEY key) {
    if (DWORD error = simhost::injectedFailure("RegCloseKey")) return static_cast<LSTATUS>(error);
    if (isPredefined(key)) return ERROR_SUCCESS;
    return withRegistry([&](RegistryState& state) -> LSTATUS {
        return state.handles.erase(key) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
    });
}

// Stores the data as given, whatever its type and size; the handle needs
// KEY_SET_VALUE. A null or empty name sets the key's unnamed value.
LSTATUS WINAPI RegSetValueExW(HKEY key, LPCWSTR valueName, DWORD reserved, DWORD type, const BYTE* data,
                              DWORD dataSize) {
    if (DWORD error = simhost::injectedFailure("RegSetValueExW")) return static_cast<LSTATUS>(error);
    if (reserved) return ERROR_INVALID_PARAMETER;
    if (!data && dataSize) return ERROR_NOACCESS;
    return withRegistry([&](RegistryState& state) -> LSTATUS {
        ResolvedKey target = resolveForAccess(state, key, KEY_SET_VALUE);
        if (target.error) return target.error;
        storeValue(*target.key, textOf(valueName), type, std::vector<BYTE>(data, data + dataSize));
        return ERROR_SUCCESS;
    });
}

// The value as stored, strings with or without their NULs as they were
// written. The handle needs KEY_QUERY_VALUE.
LSTATUS WINAPI RegQueryValueExW(HKEY key, LPCWSTR valueName, LPDWORD reserved, LPDWORD type, LPBYTE data,
                                LPDWORD dataSize) {
    if (DWORD error = simhost::injectedFailure("RegQueryValueExW")) return static_cast<LSTATUS>(error);
    if (reserved || (data && !dataSize)) return ERROR_INVALID_PARAMETER;
    return withRegistry([&](RegistryState& state) -> LSTATUS {
        ResolvedKey source = resolveForAccess(state, key, KEY_QUERY_VALUE);
        if (source.error) return source.error;
        const RegistryValueEntry* stored = source.key->findValue(textOf(valueName));
        if (!stored) return ERROR_FILE_NOT_FOUND;
        return deliverData({stored->type, stored->data}, type, data, dataSize);
    });
}

// Reads a value of the key or of a subkey, admitting only the types the
// RRF_RT_* flags name: ERROR_UNSUPPORTED_TYPE otherwise. Strings always come
// with their terminating NULs, counted in the size. With RRF_ZEROONFAILURE
// every failure, an injected one included, zeroes the caller's buffer.
LSTATUS WINAPI RegGetValueW(HKEY key, LPCWSTR subKey, LPCWSTR valueName, DWORD flags, LPDWORD type, PVOID data,
                            LPDWORD dataSize) {
    DWORD bufferSize = data && dataSize ? *dataSize : 0;
    LSTATUS result = getValue(key, subKey, valueName, flags, type, data, dataSize);
    if (result != ERROR_SUCCESS && (flags & RRF_ZEROONFAILURE) && data) std::memset(data, 0, bufferSize);
    return result;
}

// The handle needs KEY_SET_VALUE; a missing value is ERROR_FILE_NOT_FOUND.
LSTATUS WINAPI RegDeleteValueW(HKEY key, LPCWSTR valueName) {
    if (DWORD error = simhost::injectedFailure("RegDeleteValueW")) return static_cast<LSTATUS>(error);
    return withRegistry([&](RegistryState& state) -> LSTATUS {
        ResolvedKey target = resolveForAccess(state, key, KEY_SET_VALUE);
        if (target.error) return target.error;
        return target.key->eraseValue(textOf(valueName)) ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
    });
}

// Deletes a key without subkeys, whatever the handle's rights. A key with
// subkeys, a hive root or a predefined view is ERROR_ACCESS_DENIED. Handles
// still open on the key answer ERROR_KEY_DELETED from then on.
LSTATUS WINAPI RegDeleteKeyW(HKEY key, LPCWSTR subKey) {
    if (DWORD error = simhost::injectedFailure("RegDeleteKeyW")) return static_cast<LSTATUS>(error);
    if (!subKey) return ERROR_INVALID_PARAMETER;
    return withRegistry([&](RegistryState& state) -> LSTATUS {
        ResolvedKey base = resolveHandle(state, key);
        if (base.error) return base.error;
        KeyPtr target = findPath(base.key, subKey);
        if (!target) return ERROR_FILE_NOT_FOUND;
        bool predefinedView = !*subKey && isPredefined(key);
        if (target->hive || predefinedView || !target->subkeys.empty()) return ERROR_ACCESS_DENIED;
        detachTree(target);
        return ERROR_SUCCESS;
    });
}
