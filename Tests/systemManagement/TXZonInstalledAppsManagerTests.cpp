#include "platform/runtime/AutoreleasePool.h"
#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "support/ApplicationFixtures.h"
#include "systemManagement/processManagement/TXZonInstalledAppsManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace zon;
using namespace zon::test;
using testing::ElementsAre;

namespace {

std::string utf8(const Object* value) { return value ? value->description()->UTF8String() : "(nil)"; }

std::vector<std::string> strings(const Array* array)
{
    std::vector<std::string> out;
    if (array)
        for (Object* item : *array)
            out.push_back(utf8(item));
    return out;
}

Dictionary* pallidorStation(Dictionary* table) { return table->objectForKey<Dictionary>(ZSTR("Pallidor Station")); }

// The one row of the table as it is on this machine, where the suite's application is not
// installed: both path arrays hold the default path.
TEST(TXZonInstalledAppsManager, TableOnAMachineWithoutTheApplication)
{
    AutoreleasePool pool;
    TXZonInstalledAppsManager* manager = TXZonInstalledAppsManager::sharedInstance();
    EXPECT_EQ(manager, TXZonInstalledAppsManager::sharedInstance());
    ASSERT_TRUE(manager->trackedProducts());
    EXPECT_EQ(manager->trackedProducts()->count(), 1u);
    Dictionary* product = pallidorStation(manager->trackedProducts());
    ASSERT_TRUE(product);
    EXPECT_EQ(product->count(), 6u);
    EXPECT_EQ(utf8(product->objectForKey(ZSTR("TXZonProductIdentifier"))), "org.zoncommon.PallidorStation");
    EXPECT_EQ(utf8(product->objectForKey(ZSTR("TXZonProductReceipt"))), "pallidorstation.pkg");
    EXPECT_EQ(utf8(product->objectForKey(ZSTR("TXZonProductPackageReceipt"))), "org.zoncommon.PallidorStation.Application.pkg");
    Number* type = product->objectForKey<Number>(ZSTR("TXZonProductType"));
    ASSERT_TRUE(type);
    EXPECT_EQ(type->intValue(), 0);
    EXPECT_THAT(strings(product->objectForKey<Array>(ZSTR("TXZonProductApplicationDataFiles"))),
        ElementsAre("/Applications/Pallidor Station.app"));
    EXPECT_THAT(strings(product->objectForKey<Array>(ZSTR("TXZonProductFiles"))), ElementsAre("/Applications/Pallidor Station.app"));

    EXPECT_FALSE(manager->listOfTrackedProducts());
    EXPECT_FALSE(manager->listOfInstalledProducts());
    EXPECT_FALSE(manager->listOfFilePathsForApplication(ZSTR("Pallidor Station.app")));
}

class InstalledApplications : public testing::Test {
protected:
    InstalledApplications()
    {
        environment.set("HOME", scratch.makeFolder("home"));
        environment.set("XDG_DATA_HOME", scratch.makeFolder("data"));
        environment.set("XDG_DATA_DIRS", scratch.makeFolder("shared"));
    }

    AutoreleasePool pool;
    // Made with this machine's folders, before the test's own are set.
    TXZonInstalledAppsManager* manager = TXZonInstalledAppsManager::sharedInstance();
    ScratchFolder scratch;
    ScopedEnvironment environment;
};

TEST_F(InstalledApplications, ADesktopEntryForTheIdentifierGivesTheApplication)
{
    const std::string program = makeProgram(scratch, "opt/Pallidor Station.app/Contents/MacOS/Pallidor Station");
    scratch.write("data/applications/org.zoncommon.PallidorStation.desktop",
        desktopEntryText("Name=Pallidor Station\nExec=\"" + program + "\" %U\n"));
    Ref<Dictionary> table = manager->generateTrackedProductsList();
    Dictionary* product = pallidorStation(table.get());
    const std::string application = scratch.file("opt/Pallidor Station.app");
    EXPECT_THAT(strings(product->objectForKey<Array>(ZSTR("TXZonProductApplicationDataFiles"))), ElementsAre(application));
    EXPECT_THAT(strings(product->objectForKey<Array>(ZSTR("TXZonProductFiles"))), ElementsAre(application));
    // The table made first stays as it was.
    EXPECT_THAT(strings(pallidorStation(manager->trackedProducts())->objectForKey<Array>(ZSTR("TXZonProductFiles"))),
        ElementsAre("/Applications/Pallidor Station.app"));
}

TEST_F(InstalledApplications, PathSearchIsIdentifierThenNameThenDefault)
{
    auto find = [&](const char* name, const char* identifier) {
        return utf8(manager->findPathForApplicationNamed_withIdentifier_defaultPath(String::stringWithUTF8String(name).get(),
            String::stringWithUTF8String(identifier).get(), ZSTR("/default/Tool.app")).get());
    };
    EXPECT_EQ(find("Tool.app", "org.example.Tool"), "/default/Tool.app");
    const std::string byName = makeApplicationBundle(scratch, "home/Applications/Tool.app", "org.example.Other");
    EXPECT_EQ(find("Tool.app", "org.example.Tool"), byName);
    const std::string byIdentifier = makeApplicationBundle(scratch, "home/Applications/Renamed.app", "org.example.Tool");
    EXPECT_EQ(find("Tool.app", "org.example.Tool"), byIdentifier);
    EXPECT_EQ(utf8(manager->findPathForApplicationNamed_withIdentifier_defaultPath(nullptr, nullptr, nullptr).get()), "(nil)");
}

} // namespace
