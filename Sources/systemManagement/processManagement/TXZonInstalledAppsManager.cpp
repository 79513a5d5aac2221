#include "systemManagement/processManagement/TXZonInstalledAppsManager.h"

#include "platform/io/Workspace.h"
#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"

namespace zon {

ZON_DEFINE_CLASS(TXZonInstalledAppsManager, "TXZonInstalledAppsManager")

String* const TXZonPallidorStationBundleIdentifier = ZSTR("org.zoncommon.PallidorStation");

namespace {

// The one shared body of the list operations that this version declares but does not implement.
Ref<Array> notImplementedList() { return nullptr; }

} // namespace

void TXZonInstalledAppsManager::init() { setTrackedProducts(generateTrackedProductsList().get()); }

Ref<Dictionary> TXZonInstalledAppsManager::generateTrackedProductsList() const
{
    Ref<String> applicationPath = findPathForApplicationNamed_withIdentifier_defaultPath(ZSTR("Pallidor Station.app"),
        TXZonPallidorStationBundleIdentifier, ZSTR("/Applications/Pallidor Station.app"));
    Ref<Array> applicationFiles = Array::arrayWithObject(applicationPath.get());
    // The data folder's list is made and then not used: both path keys take the application's
    // list, as the table always has.
    [[maybe_unused]] Ref<Array> dataFiles = Array::arrayWithObject(ZSTR("/Users/<user>/Library/Application Support/Pallidor Bridge"));
    Ref<Dictionary> product = Dictionary::dictionaryWithObjectsAndKeys({
        {ZSTR("TXZonProductIdentifier"), TXZonPallidorStationBundleIdentifier},
        {ZSTR("TXZonProductReceipt"), ZSTR("pallidorstation.pkg")},
        {ZSTR("TXZonProductPackageReceipt"),
            TXZonPallidorStationBundleIdentifier->stringByAppendingString(ZSTR(".Application.pkg")).get()},
        {ZSTR("TXZonProductType"), Number::numberWithInt(0).get()},
        {ZSTR("TXZonProductApplicationDataFiles"), applicationFiles.get()},
        {ZSTR("TXZonProductFiles"), applicationFiles.get()},
    });
    return Dictionary::dictionaryWithObjectsAndKeys({{ZSTR("Pallidor Station"), product.get()}});
}

Ref<String> TXZonInstalledAppsManager::findPathForApplicationNamed_withIdentifier_defaultPath(
    const String* applicationName, const String* identifier, const String* defaultPath) const
{
    Workspace* workspace = Workspace::sharedWorkspace();
    if (Ref<String> found = workspace->absolutePathForAppBundleWithIdentifier(identifier))
        return found;
    if (Ref<String> found = workspace->fullPathForApplication(applicationName))
        return found;
    return const_cast<String*>(defaultPath);
}

void TXZonInstalledAppsManager::setTrackedProducts(Dictionary* trackedProducts) { trackedProducts_ = trackedProducts; }

Ref<Array> TXZonInstalledAppsManager::listOfTrackedProducts() const { return notImplementedList(); }

Ref<Array> TXZonInstalledAppsManager::listOfInstalledProducts() const { return notImplementedList(); }

Ref<Array> TXZonInstalledAppsManager::listOfFilePathsForApplication(const String*) const { return notImplementedList(); }

} // namespace zon
