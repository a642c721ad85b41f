// Class driver lists: built for an element (or for the set) from the INF
// files of its class, walked by SetupDiEnumDriverInfoW, read in detail by
// SetupDiGetDriverInfoDetailW, freed by SetupDiDestroyDriverInfoList or with
// their set. Compatible driver lists are not modelled.
#include "simhost/setupapi/setupapi_state.h"

#include <algorithm>

namespace simhost {
namespace setupapi {
namespace {

// Records of the first version end before DriverDate; both are accepted.
constexpr DWORD kDriverInfoV1Size = offsetof(SP_DRVINFO_DATA_V2_W, DriverDate);

bool knownDriverInfoSize(DWORD cbSize) { return cbSize == sizeof(SP_DRVINFO_DATA_V2_W) || cbSize == kDriverInfoV1Size; }

ULONG_PTR listKey(const SetTarget& target) { return target.element ? target.element->token : 0; }

// The class a list for this target is built of: the element's, else the set's.
GUID targetClass(const SetTarget& target) {
    return target.element ? target.element->classGuid : target.set->classGuid;
}

const std::vector<DriverInfo>* findList(const SetTarget& target) {
    auto found = target.set->classDriverLists.find(listKey(target));
    return found == target.set->classDriverLists.end() ? nullptr : &found->second;
}

// Copies text into a fixed field, cut to fit with its NUL.
void copyText(const std::wstring& text, WCHAR* field, size_t capacity) {
    size_t length = std::min(text.size(), capacity - 1);
    std::copy(text.begin(), text.begin() + static_cast<long>(length), field);
    field[length] = L'\0';
}

void fillDriverInfo(const DriverInfo& driver, SP_DRVINFO_DATA_V2_W& data) {
    data.DriverType = SPDIT_CLASSDRIVER;
    data.Reserved = driver.token;
    copyText(driver.description, data.Description, LINE_LEN);
    copyText(driver.mfgName, data.MfgName, LINE_LEN);
    copyText(driver.providerName, data.ProviderName, LINE_LEN);
    if (data.cbSize != sizeof(SP_DRVINFO_DATA_V2_W)) return;
    data.DriverDate = driver.driverDate;
    data.DriverVersion = driver.driverVersion;
}

// Checks common to the driver list calls: the target, and the list type.
SetTarget findListTarget(SetupApiState& state, HDEVINFO handle, const SP_DEVINFO_DATA* data, DWORD driverType) {
    SetTarget target = findTarget(state, handle, data);
    if (target.set && driverType != SPDIT_CLASSDRIVER) return {nullptr, nullptr, ERROR_INVALID_PARAMETER};
    return target;
}


// The ids of a driver as the detail record lists them: the hardware id and
// its NUL, then the compatible ids each with its NUL and one more NUL. With
// no compatible ids a second NUL ends the list, so it is still a multi-string.
struct IdList {
    std::vector<std::wstring> strings;
    DWORD compatOffset = 0;
    DWORD compatLength = 0;
    size_t chars = 0;  // every character of the list, NULs included
};

IdList idListOf(const DriverInfo& driver) {
    IdList list{driver.ids, static_cast<DWORD>(driver.ids[0].size() + 1), 0, 0};
    for (size_t i = 1; i < driver.ids.size(); ++i) list.compatLength += static_cast<DWORD>(driver.ids[i].size() + 1);
    if (list.compatLength) ++list.compatLength;
    list.chars = list.compatOffset + std::max<DWORD>(list.compatLength, 1);
    return list;
}

// Writes as many whole ids as `capacity` characters hold with the list's
// final NUL, so what is written is always a multi-string.
void writeIds(const IdList& list, WCHAR* out, size_t capacity) {
    size_t at = 0;
    for (const std::wstring& id : list.strings) {
        if (at + id.size() + 2 > capacity) break;
        std::copy(id.begin(), id.end(), out + at);
        at += id.size();
        out[at++] = L'\0';
    }
    if (at < capacity) out[at] = L'\0';
}

void fillDetail(const DriverInfo& driver, const IdList& ids, SP_DRVINFO_DETAIL_DATA_W& detail, DWORD size) {
    detail.InfDate = driver.infDate;
    detail.CompatIDsOffset = ids.compatOffset;
    detail.CompatIDsLength = ids.compatLength;
    detail.Reserved = driver.token;
    copyText(driver.sectionName, detail.SectionName, LINE_LEN);
    copyText(driver.infFileName, detail.InfFileName, MAX_PATH);
    copyText(driver.description, detail.DrvDescription, LINE_LEN);
    size_t capacity = (size - offsetof(SP_DRVINFO_DETAIL_DATA_W, HardwareID)) / sizeof(WCHAR);
    writeIds(ids, detail.HardwareID, capacity);
}

const DriverInfo* findDriver(const SetTarget& target, const SP_DRVINFO_DATA_V2_W* data) {
    const std::vector<DriverInfo>* list = findList(target);
    if (!list || !data || !knownDriverInfoSize(data->cbSize)) return nullptr;
    auto found = std::find_if(list->begin(), list->end(), [&](const DriverInfo& d) { return d.token == data->Reserved; });
    return found == list->end() ? nullptr : &*found;
}

// Why a detail buffer cannot be used, or 0: none with a size is
// ERROR_INVALID_PARAMETER; one whose cbSize is not the fixed record's, or too
// small for it, ERROR_INVALID_USER_BUFFER.
DWORD detailBufferError(const SP_DRVINFO_DETAIL_DATA_W* detail, DWORD size) {
    if (!detail) return size ? ERROR_INVALID_PARAMETER : ERROR_SUCCESS;
    bool usable = detail->cbSize == sizeof(SP_DRVINFO_DETAIL_DATA_W) && size >= sizeof(SP_DRVINFO_DETAIL_DATA_W);
    return usable ? ERROR_SUCCESS : ERROR_INVALID_USER_BUFFER;
}

}  // namespace

size_t openDriverInfoListCount() {
    return withSetupApiState([](SetupApiState& state) {
        size_t count = 0;
        for (const auto& entry : state.sets) count += entry.second.classDriverLists.size();
        return count;
    });
}

}  // namespace setupapi
}  // namespace simhost

using namespace simhost::setupapi;

// Builds the class driver list of the element, or of the set when none is
// given: one driver per model line of every INF file of the class (see
// classDrivers). A list built already is kept as it is. A set or element
// without a class fails with ERROR_NO_ASSOCIATED_CLASS. The files are read
// without the lock, and the list is kept only if its set still exists.
BOOL WINAPI SetupDiBuildDriverInfoList(HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData, DWORD driverType) {
    if (DWORD e = simhost::injectedFailure("SetupDiBuildDriverInfoList")) return failWith(e);
    GUID classGuid{};
    DWORD error = withSetupApiState([&](SetupApiState& state) -> DWORD {
        SetTarget target = findListTarget(state, deviceInfoSet, deviceInfoData, driverType);
        if (!target.set) return target.error;
        classGuid = targetClass(target);
        return classGuid == GUID{} ? ERROR_NO_ASSOCIATED_CLASS : ERROR_SUCCESS;
    });
    if (error) return failWith(error);
    std::vector<DriverInfo> drivers = classDrivers(classGuid);
    return withSetupApiState([&](SetupApiState& state) {
        SetTarget target = findListTarget(state, deviceInfoSet, deviceInfoData, driverType);
        if (!target.set) return failWith(target.error);
        if (findList(target)) return TRUE;
        for (DriverInfo& driver : drivers) driver.token = ++state.lastDriverToken;
        target.set->classDriverLists[listKey(target)] = std::move(drivers);
        return TRUE;
    });
}

// The driver at memberIndex; past the end, or before a list is built, FALSE
// with ERROR_NO_MORE_ITEMS. The record is output: a cbSize of neither
// version fails with ERROR_INVALID_USER_BUFFER.
BOOL WINAPI SetupDiEnumDriverInfoW(HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData, DWORD driverType,
                                   DWORD memberIndex, PSP_DRVINFO_DATA_W driverInfoData) {
    if (DWORD e = simhost::injectedFailure("SetupDiEnumDriverInfoW")) return failWith(e);
    return withSetupApiState([&](SetupApiState& state) {
        SetTarget target = findListTarget(state, deviceInfoSet, deviceInfoData, driverType);
        if (!target.set) return failWith(target.error);
        if (!driverInfoData) return failWith(ERROR_INVALID_PARAMETER);
        if (!knownDriverInfoSize(driverInfoData->cbSize)) return failWith(ERROR_INVALID_USER_BUFFER);
        const std::vector<DriverInfo>* list = findList(target);
        if (!list || memberIndex >= list->size()) return failWith(ERROR_NO_MORE_ITEMS);
        fillDriverInfo((*list)[memberIndex], *driverInfoData);
        return TRUE;
    });
}

// Frees the class driver list of the element or of the set; one never built
// is no error.
BOOL WINAPI SetupDiDestroyDriverInfoList(HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData, DWORD driverType) {
    if (DWORD e = simhost::injectedFailure("SetupDiDestroyDriverInfoList")) return failWith(e);
    return withSetupApiState([&](SetupApiState& state) {
        SetTarget target = findListTarget(state, deviceInfoSet, deviceInfoData, driverType);
        if (!target.set) return failWith(target.error);
        target.set->classDriverLists.erase(listKey(target));
        return TRUE;
    });
}

// The detail of a driver of the list, in the two-call protocol: *requiredSize
// is the fixed record and the whole id list in bytes. A buffer that holds the
// fixed record but not the whole list gets the fixed part and as many ids as
// fit, and the call fails with ERROR_INSUFFICIENT_BUFFER, as documented; so
// does a null buffer of size 0. A driver record that names no driver of the
// list fails with ERROR_INVALID_PARAMETER.
BOOL WINAPI SetupDiGetDriverInfoDetailW(HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData,
                                        PSP_DRVINFO_DATA_W driverInfoData,
                                        PSP_DRVINFO_DETAIL_DATA_W driverInfoDetailData,
                                        DWORD driverInfoDetailDataSize, PDWORD requiredSize) {
    if (DWORD e = simhost::injectedFailure("SetupDiGetDriverInfoDetailW")) return failWith(e);
    return withSetupApiState([&](SetupApiState& state) {
        SetTarget target = findTarget(state, deviceInfoSet, deviceInfoData);
        if (!target.set) return failWith(target.error);
        const DriverInfo* driver = findDriver(target, driverInfoData);
        if (!driver) return failWith(ERROR_INVALID_PARAMETER);
        if (DWORD e = detailBufferError(driverInfoDetailData, driverInfoDetailDataSize)) return failWith(e);
        IdList ids = idListOf(*driver);
        DWORD needed = static_cast<DWORD>(std::max(sizeof(SP_DRVINFO_DETAIL_DATA_W),
                                                   offsetof(SP_DRVINFO_DETAIL_DATA_W, HardwareID) + ids.chars * sizeof(WCHAR)));
        if (requiredSize) *requiredSize = needed;
        if (!driverInfoDetailData) return failWith(ERROR_INSUFFICIENT_BUFFER);
        fillDetail(*driver, ids, *driverInfoDetailData, driverInfoDetailDataSize);
        return driverInfoDetailDataSize < needed ? failWith(ERROR_INSUFFICIENT_BUFFER) : TRUE;
    });
}
