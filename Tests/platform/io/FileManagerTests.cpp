#include "platform/io/FileManager.h"

#include "platform/values/Date.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace zon;
using namespace zon::test;

namespace {

Ref<String> str(const std::string& text) { return String::stringWithUTF8String(text); }

void expectFileError(const Error* error, long code, int posixCode, const std::string& path)
{
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain()->UTF8String(), "NSCocoaErrorDomain");
    EXPECT_EQ(error->code(), code);
    auto* filePath = dynamicCast<String>(error->userInfo()->objectForKey(NSFilePathErrorKey));
    ASSERT_TRUE(filePath);
    EXPECT_EQ(filePath->UTF8String(), path);
    ASSERT_TRUE(error->underlyingError());
    EXPECT_EQ(error->underlyingError()->domain()->UTF8String(), "NSPOSIXErrorDomain");
    EXPECT_EQ(error->underlyingError()->code(), posixCode);
}

} // namespace

TEST(FileManager, ErrorsCarryTheCocoaCodePathAndPosixError)
{
    ScratchFolder scratch;
    FileManager* files = FileManager::defaultManager();
    const std::string file = scratch.write("file", "x");
    Ref<Error> error;

    EXPECT_FALSE(files->attributesOfItemAtPath_error(str(scratch.file("missing")).get(), &error));
    expectFileError(error.get(), 260, ENOENT, scratch.file("missing"));
    EXPECT_FALSE(files->attributesOfItemAtPath_error(str(file + "/below").get(), &error));
    expectFileError(error.get(), 260, ENOTDIR, file + "/below");
    const std::string longName = scratch.file(std::string(300, 'n'));
    EXPECT_FALSE(files->attributesOfItemAtPath_error(str(longName).get(), &error));
    expectFileError(error.get(), 258, ENAMETOOLONG, longName);

    EXPECT_FALSE(files->removeItemAtPath_error(str(scratch.file("missing")).get(), &error));
    expectFileError(error.get(), 4, ENOENT, scratch.file("missing"));
    EXPECT_FALSE(files->createDirectoryAtPath_withIntermediateDirectories_attributes_error(str(file).get(), true, nullptr, &error));
    expectFileError(error.get(), 516, EEXIST, file);
    EXPECT_FALSE(files->createDirectoryAtPath_withIntermediateDirectories_attributes_error(str(file + "/sub").get(), true, nullptr, &error));
    expectFileError(error.get(), 260, ENOTDIR, file + "/sub");
    EXPECT_FALSE(files->setAttributes_ofItemAtPath_error(
        Dictionary::dictionaryWithObject_forKey(Date::date().get(), NSFileModificationDate).get(),
        str(scratch.file("gone")).get(), &error));
    expectFileError(error.get(), 260, ENOENT, scratch.file("gone"));
}

TEST(FileManager, AttributesAndSettingTheModificationDate)
{
    ScratchFolder scratch;
    FileManager* files = FileManager::defaultManager();
    const std::string file = scratch.write("file", "12345");
    ::chmod(file.c_str(), 0640);
    auto attributes = files->attributesOfItemAtPath_error(str(file).get(), nullptr);
    ASSERT_TRUE(attributes);
    EXPECT_EQ(dynamicCast<Number>(attributes->objectForKey(NSFileSize))->unsignedLongLongValue(), 5u);
    EXPECT_EQ(dynamicCast<Number>(attributes->objectForKey(NSFilePosixPermissions))->intValue(), 0640);
    EXPECT_TRUE(dynamicCast<String>(attributes->objectForKey(NSFileType))->isEqualToString(NSFileTypeRegular));
    ASSERT_TRUE(dynamicCast<Date>(attributes->objectForKey(NSFileCreationDate)));

    // A creation date is accepted and ignored; the modification date lands to the microsecond.
    auto past = Date::dateWithTimeIntervalSince1970(1'000'000'000.25);
    auto wanted = Dictionary::dictionaryWithObjectsAndKeys({{NSFileModificationDate, past.get()}, {NSFileCreationDate, past.get()}});
    Ref<Error> error;
    EXPECT_TRUE(files->setAttributes_ofItemAtPath_error(wanted.get(), str(file).get(), &error));
    EXPECT_FALSE(error);
    attributes = files->attributesOfItemAtPath_error(str(file).get(), nullptr);
    EXPECT_NEAR(dynamicCast<Date>(attributes->objectForKey(NSFileModificationDate))->timeIntervalSince1970(), 1'000'000'000.25, 1e-6);

    ::symlink("file", scratch.file("link").c_str());
    attributes = files->attributesOfItemAtPath_error(str(scratch.file("link")).get(), nullptr);
    EXPECT_TRUE(dynamicCast<String>(attributes->objectForKey(NSFileType))->isEqualToString(NSFileTypeSymbolicLink));
}

TEST(FileManager, FoldersAreMadeWithParentsAndRemovedWithContents)
{
    ScratchFolder scratch;
    FileManager* files = FileManager::defaultManager();
    const std::string deep = scratch.file("a/b/c");
    EXPECT_TRUE(files->createDirectoryAtPath_withIntermediateDirectories_attributes_error(str(deep).get(), true, nullptr, nullptr));
    EXPECT_TRUE(files->createDirectoryAtPath_withIntermediateDirectories_attributes_error(str(deep).get(), true, nullptr, nullptr));
    Ref<Error> error;
    EXPECT_FALSE(files->createDirectoryAtPath_withIntermediateDirectories_attributes_error(str(deep).get(), false, nullptr, &error));
    EXPECT_EQ(error->code(), 516);
    bool isDirectory = false;
    EXPECT_TRUE(files->fileExistsAtPath_isDirectory(str(deep).get(), &isDirectory));
    EXPECT_TRUE(isDirectory);

    scratch.write("a/b/file", "x");
    ::symlink(scratch.path.c_str(), scratch.file("a/b/c/link-out").c_str());
    EXPECT_TRUE(files->removeItemAtPath_error(str(scratch.file("a")).get(), nullptr));
    EXPECT_FALSE(files->fileExistsAtPath(str(scratch.file("a")).get()));
    // The link was removed, not what it points to.
    EXPECT_TRUE(files->fileExistsAtPath(str(scratch.path).get()));
}
