// The opening of an XML property list as the platform writes it, shared by its
// writer and its reader, which reads such documents without libexpat.
#pragma once

#include <string_view>

namespace platform::xml_plist {

inline constexpr std::string_view kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
inline constexpr std::string_view kDocumentType =
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n";
// What follows "<plist" in its opening tag.
inline constexpr std::string_view kPlistAttributes = " version=\"1.0\"";

}  // namespace platform::xml_plist
