// The information property list the tool embeds: what cli/Info.plist says, in
// the binary format, so that a run reads it without an XML parser.
#include "platform/foundation/main_bundle.h"

#include <gtest/gtest.h>

#include "platform/foundation/file_contents.h"
#include "platform/plist/property_list.h"

namespace {

TEST(MainBundle, EmbedsTheSourceInformationPropertyListInTheBinaryFormat) {
  platform::Bytes source;
  ASSERT_EQ(platform::readFile(std::string(QHV_SOURCE_DIR) + "/cli/Info.plist", &source, nullptr),
            platform::FileReadResult::Read);
  const platform::Value written = platform::propertyListWithData(source, nullptr, nullptr);
  ASSERT_NE(written.asDictionary(), nullptr);
  ASSERT_GT(written.asDictionary()->size(), 0U);

  const platform::MainBundle& bundle = platform::MainBundle::mainBundle();
  platform::PropertyListFormat format{};
  const platform::Value embedded = platform::propertyListWithData(bundle.infoPropertyListData(), &format, nullptr);
  EXPECT_EQ(format, platform::PropertyListFormat::Binary);
  EXPECT_EQ(embedded, written);
  // What `version` and every other lookup read.
  EXPECT_EQ(bundle.infoDictionary(), *written.asDictionary());
}

}  // namespace
