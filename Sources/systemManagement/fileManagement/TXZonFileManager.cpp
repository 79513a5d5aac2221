#include "systemManagement/fileManagement/TXZonFileManager.h"

#include "logger/ZonLog.h"
#include "platform/io/FileManager.h"
#include "platform/io/FinderMetadataStore.h"
#include "platform/io/TypeIdentifiers.h"
#include "platform/runtime/Class.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"

#include <cstring>

namespace zon {

ZON_DEFINE_CLASS(TXZonFileManager, "TXZonFileManager")

namespace {

ZON_STRING_CONSTANT(kExceptionErrorDomain, "Exception Error");
ZON_STRING_CONSTANT(kFileMissingDomain, "File Missing");
ZON_STRING_CONSTANT(kExceptionKey, "Exception");

constexpr long kExceptionErrorCode = -1;
constexpr long kFileMissingCode = -2;

Ref<Error> systemErrorWithCode(int code)
{
    return Error::errorWithDomain_code(String::stringWithUTF8String(std::strerror(code)).get(), code);
}

} // namespace

TXZonAtomicSingleton::Slot* TXZonFileManager::singletonInstance()
{
    static constinit Slot slot;
    return &slot;
}

TXZonFileManager* TXZonFileManager::defaultManager() { return sharedInstance(); }

bool TXZonFileManager::copyFileFromPath_toPath_error(const String* source, const String* destination, Ref<Error>* error)
{
    return copyFileFromPath_toPath_replaceIfExists_error(source, destination, false, error);
}

bool TXZonFileManager::copyFileFromPath_toPath_replaceIfExists_error(const String* source, const String* destination,
    bool replace, Ref<Error>* error, FileCopyMethod* engineUsed)
{
    if (error)
        *error = nullptr;
    if (engineUsed)
        *engineUsed = FileCopyMethod::none;
    bool ok = true;
    Ref<Error> failure;
    FileManager* files = FileManager::defaultManager();
    if (fileExistsAtPath(destination)) {
        if (!replace) {
            zon_log_obj(__FILE__, __LINE__, this, logger::kLevelWarning, kDefaultLogIdentifier,
                "File already exists at path %@ -- not replacing", destination);
            return true;
        }
        if (!files->removeItemAtPath_error(destination, &failure)) {
            ok = false;
            zon_log_obj(__FILE__, __LINE__, this, logger::kLevelError, kDefaultLogIdentifier, "Remove error at: %@", destination);
        }
    }
    FileDescriptor input;
    FileDescriptor output;
    try {
        Ref<String> parent = destination ? destination->stringByDeletingLastPathComponent() : nullptr;
        if (ok && parent && parent->length() > 0 && !files->fileExistsAtPath(parent.get())
            && !files->createDirectoryAtPath_withIntermediateDirectories_attributes_error(parent.get(), true, nullptr, &failure)) {
            ok = false;
            zon_log_obj(__FILE__, __LINE__, this, logger::kLevelError, kDefaultLogIdentifier, "Unable to create directory %@", parent);
        }
        if (ok) {
            auto opened = openFile(source ? source->UTF8String() : std::string(), O_RDONLY);
            if (!opened) {
                failure = systemErrorWithCode(opened.code());
                ok = false;
                zon_log_obj(__FILE__, __LINE__, this, logger::kLevelError, kDefaultLogIdentifier, "Cannot open file at: %@", source);
            } else {
                input = std::move(opened.value());
                auto created = openFile(destination ? destination->UTF8String() : std::string(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
                if (!created) {
                    failure = systemErrorWithCode(created.code());
                    ok = false;
                    zon_log_obj(__FILE__, __LINE__, this, logger::kLevelError, kDefaultLogIdentifier, "Cannot open file at: %@", destination);
                } else {
                    output = std::move(created.value());
                    const FileCopyOutcome outcome = copyFileContents(input.get(), output.get());
                    if (engineUsed)
                        *engineUsed = outcome.method;
                    if (outcome.failure) {
                        failure = systemErrorWithCode(outcome.failure->error.code);
                        ok = false;
                        if (outcome.failure->side == FileCopySide::source)
                            zon_log_obj(__FILE__, __LINE__, this, logger::kLevelError, kDefaultLogIdentifier, "Read error at: %@", source);
                        else
                            zon_log_obj(__FILE__, __LINE__, this, logger::kLevelError, kDefaultLogIdentifier, "Write error at: %@", destination);
                    }
                }
            }
        }
    } catch (const Exception& exception) {
        auto userInfo = Dictionary::dictionaryWithObject_forKey(exception.copy().get(), kExceptionKey);
        failure = Error::errorWithDomain_code_userInfo(kExceptionErrorDomain, kExceptionErrorCode, userInfo.get());
        ok = false;
        zon_log_obj(__FILE__, __LINE__, this, logger::kLevelError, kDefaultLogIdentifier,
            "Exception while copying file to: %@", destination);
    }
    input.reset();
    output.reset();
    if (ok) {
        if (fileExistsAtPath(destination)) {
            Ref<Dictionary> attributes = files->attributesOfItemAtPath_error(source, &failure);
            if (!attributes || failure) {
                zon_log_obj(__FILE__, __LINE__, this, logger::kLevelWarning, kDefaultLogIdentifier,
                    "Couldn't get attributes for source file %@", source);
            } else {
                auto dates = Dictionary::dictionaryWithObjectsAndKeys({
                    {NSFileModificationDate, attributes->objectForKey(NSFileModificationDate)},
                    {NSFileCreationDate, attributes->objectForKey(NSFileCreationDate)},
                });
                if (!files->setAttributes_ofItemAtPath_error(dates.get(), destination, &failure))
                    zon_log_obj(__FILE__, __LINE__, this, logger::kLevelWarning, kDefaultLogIdentifier,
                        "Couldn't set attributes for target file %@", destination);
            }
        } else {
            failure = Error::errorWithDomain_code_userInfo(kFileMissingDomain, kFileMissingCode, nullptr);
            ok = false;
        }
    }
    if (failure && error)
        *error = failure;
    return ok;
}

bool TXZonFileManager::ensureDirectoryExistsAtPath(const String* path)
{
    if (!path)
        return false;
    Ref<String> parent = path->stringByDeletingLastPathComponent();
    if (parent->length() == 0 || parent->UTF8String() == "/")
        return true;
    if (!ensureDirectoryExistsAtPath(parent.get()))
        return false;
    FileManager* files = FileManager::defaultManager();
    bool isDirectory = false;
    if (files->fileExistsAtPath_isDirectory(path, &isDirectory)) {
        if (isDirectory)
            return true;
        zon_log_obj(__FILE__, __LINE__, this, logger::kLevelError, kDefaultLogIdentifier,
            "Cannot create directory, it already exists as a file: %@", path);
        return false;
    }
    Ref<Error> failure;
    if (files->createDirectoryAtPath_withIntermediateDirectories_attributes_error(path, true, nullptr, &failure))
        return true;
    zon_log_obj(__FILE__, __LINE__, this, logger::kLevelError, kDefaultLogIdentifier,
        "Cannot create directory because of error: %@", failure);
    return false;
}

bool TXZonFileManager::fileExistsAtPath(const String* path) { return fileExistsAtPath_isDirectory(path, nullptr); }

bool TXZonFileManager::fileExistsAtPath_isDirectory(const String* path, bool* isDirectory)
{
    auto status = pathStatus(path ? path->UTF8String() : std::string());
    if (!status && (status.code() == ENOENT || status.code() == EPERM))
        return false;
    if (isDirectory)
        *isDirectory = status && static_cast<uint16_t>(status.value().st_mode) == 0x4000;
    return true;
}

uint32_t TXZonFileManager::sizeOfFile(const String* path)
{
    auto status = pathStatus(path ? path->UTF8String() : std::string());
    return status ? static_cast<uint32_t>(status.value().st_size) : 0;
}

Ref<String> TXZonFileManager::utiOfFile(const String* path)
{
    if (!path || !FileManager::defaultManager()->fileExistsAtPath(path))
        return nullptr;
    constexpr std::string_view kData = "public.data";
    if (Ref<String> extension = path->pathExtension(); extension->length() > 0)
        return String::stringWithUTF8String(
            preferredTypeIdentifierForTag(TypeTagClass::filenameExtension, extension->UTF8String(), kData));
    const auto finderInfo = readFinderInfo(path->UTF8String());
    // The type code is the first four bytes; 0 (or no Finder information at all) means none.
    if (!finderInfo || ((*finderInfo)[0] | (*finderInfo)[1] | (*finderInfo)[2] | (*finderInfo)[3]) == 0)
        return nullptr;
    const std::string typeCode(finderInfo->begin(), finderInfo->begin() + 4);
    return String::stringWithUTF8String(preferredTypeIdentifierForTag(TypeTagClass::osType, typeCode, kData));
}

Ref<String> TXZonFileManager::utiForMimeType(const String* mimeType)
{
    if (!mimeType)
        return nullptr;
    return String::stringWithUTF8String(preferredTypeIdentifierForTag(TypeTagClass::mimeType, mimeType->UTF8String()));
}

Ref<Error> TXZonFileManager::currentSystemError() { return systemErrorWithCode(errno); }

} // namespace zon
