#include "platform/io/TypeIdentifiers.h"

#include <gtest/gtest.h>

using namespace zon;

TEST(TypeIdentifiers, ExtensionsMatchWithoutRegardToCase)
{
    for (const char* extension : {"jpg", "JPG", "Jpeg"})
        EXPECT_EQ(preferredTypeIdentifierForTag(TypeTagClass::filenameExtension, extension, "public.data"), "public.jpeg")
            << extension;
    EXPECT_EQ(preferredTypeIdentifierForTag(TypeTagClass::filenameExtension, "MP3", "public.data"), "public.mp3");
    EXPECT_EQ(preferredTypeIdentifierForTag(TypeTagClass::filenameExtension, "txt", "public.data"), "public.plain-text");
    EXPECT_EQ(preferredTypeIdentifierForTag(TypeTagClass::filenameExtension, "m4a"), "public.mpeg-4-audio");
}

TEST(TypeIdentifiers, MimeTypesAndTypeCodes)
{
    EXPECT_EQ(preferredTypeIdentifierForTag(TypeTagClass::mimeType, "image/png"), "public.png");
    EXPECT_EQ(preferredTypeIdentifierForTag(TypeTagClass::mimeType, "Audio/MPEG"), "public.mp3");
    EXPECT_EQ(preferredTypeIdentifierForTag(TypeTagClass::osType, "TEXT", "public.data"), "public.plain-text");
    EXPECT_EQ(preferredTypeIdentifierForTag(TypeTagClass::osType, "MPG3", "public.data"), "public.mp3");
    // Codes are exact: "text" is not "TEXT".
    EXPECT_TRUE(preferredTypeIdentifierForTag(TypeTagClass::osType, "text").starts_with("dyn.a"));
    EXPECT_EQ(preferredTagOfType("public.jpeg", TypeTagClass::mimeType), "image/jpeg");
    EXPECT_EQ(preferredTagOfType("public.jpeg", TypeTagClass::filenameExtension), "jpg");
}

TEST(TypeIdentifiers, ABundleExtensionDoesNotConformToData)
{
    EXPECT_EQ(preferredTypeIdentifierForTag(TypeTagClass::filenameExtension, "app"), "com.apple.application-bundle");
    const std::string constrained = preferredTypeIdentifierForTag(TypeTagClass::filenameExtension, "app", "public.data");
    EXPECT_EQ(constrained, dynamicTypeIdentifier(TypeTagClass::filenameExtension, "app", "public.data"));
    // APPL is claimed by the bundle first and by the plain application file, which is data.
    EXPECT_EQ(preferredTypeIdentifierForTag(TypeTagClass::osType, "APPL", "public.data"), "com.apple.application-file");
    EXPECT_FALSE(typeConformsTo("com.apple.application-bundle", "public.data"));
    EXPECT_TRUE(typeConformsTo("com.apple.application-bundle", "public.directory"));
    EXPECT_TRUE(typeConformsTo("public.mp3", "public.item"));
    EXPECT_TRUE(typeConformsTo("org.example.undeclared", "org.example.undeclared"));
    EXPECT_FALSE(typeConformsTo("org.example.undeclared", "public.data"));
}

TEST(TypeIdentifiers, DynamicIdentifiersEncodeConstraintAndTag)
{
    EXPECT_EQ(dynamicTypeIdentifier(TypeTagClass::filenameExtension, "sql", "public.data"), "dyn.ah62d4rv4ge81g6pq");
    EXPECT_EQ(preferredTypeIdentifierForTag(TypeTagClass::filenameExtension, "sql", "public.data"), "dyn.ah62d4rv4ge81g6pq");
    // Made-up tags of each class give distinct identifiers from the same alphabet.
    const std::string extension = preferredTypeIdentifierForTag(TypeTagClass::filenameExtension, "zonxyz");
    const std::string mime = preferredTypeIdentifierForTag(TypeTagClass::mimeType, "application/x-zonxyz");
    EXPECT_NE(extension, dynamicTypeIdentifier(TypeTagClass::mimeType, "zonxyz"));
    for (const std::string& identifier : {extension, mime}) {
        ASSERT_TRUE(identifier.starts_with("dyn.a")) << identifier;
        EXPECT_EQ(identifier.find_first_not_of("abcdefghkmnpqrstuvwxyz0123456789", 5), std::string::npos) << identifier;
    }
}
