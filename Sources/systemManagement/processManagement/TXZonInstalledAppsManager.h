#pragma once

#include "atomic/TXZonAtomicSingleton.h"

namespace zon {

class Array;
class Dictionary;
class String;

// The bundle identifier of the suite's desktop application, "Pallidor Station".
ZON_EXPORT extern String* const TXZonPallidorStationBundleIdentifier;

// The process-wide registry of the suite's own products tracked on this machine: product display
// name to a description with "TXZonProductIdentifier", "TXZonProductReceipt",
// "TXZonProductPackageReceipt", "TXZonProductType", "TXZonProductApplicationDataFiles" and
// "TXZonProductFiles". Built once, when the singleton is first made, and fixed afterwards.
class ZON_EXPORT TXZonInstalledAppsManager final : public TXZonAtomicSingleton {
    ZON_OBJECT(TXZonInstalledAppsManager, TXZonAtomicSingleton)
public:
    static Slot* singletonInstance()
    {
        static constinit Slot slot;
        return &slot;
    }
    static TXZonInstalledAppsManager* sharedInstance()
    {
        return TXZonAtomicSingleton::sharedInstance<TXZonInstalledAppsManager>();
    }

    // The one-row table: "Pallidor Station", its application path (found now) in both path arrays.
    Ref<Dictionary> generateTrackedProductsList() const;
    // The workspace's application with this bundle identifier, else its application of this name,
    // else defaultPath, whether or not anything is there.
    Ref<String> findPathForApplicationNamed_withIdentifier_defaultPath(const String* applicationName,
        const String* identifier, const String* defaultPath) const;

    Dictionary* trackedProducts() const { return trackedProducts_.get(); }
    void setTrackedProducts(Dictionary* trackedProducts);

    // Declared without an implementation in this version: always nil.
    Ref<Array> listOfTrackedProducts() const;
    Ref<Array> listOfInstalledProducts() const;
    Ref<Array> listOfFilePathsForApplication(const String* applicationName) const;

private:
    TXZonInstalledAppsManager() = default;
    void init() override;

    Ref<Dictionary> trackedProducts_;
};

} // namespace zon
