#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "Zet/Dir.h"
#include "Zet/TypeMap.h"

namespace Zet {
namespace {

namespace fs = std::filesystem;

// A fresh directory of map files, named by ZET_TYPE_MAP_PATH while it lives.
class MapDir {
 public:
  MapDir() {
    std::string pattern = (fs::temp_directory_path() / "zet-type-map-XXXXXX").string();
    path_ = mkdtemp(pattern.data());
    setenv("ZET_TYPE_MAP_PATH", ("/nonexistent:" + path_.string() + ":").c_str(), 1);
  }
  ~MapDir() {
    unsetenv("ZET_TYPE_MAP_PATH");
    fs::remove_all(path_);
  }
  void fileIs(std::string const& name, std::string const& text) const { std::ofstream(path_ / name) << text; }
  fs::path const& path() const { return path_; }

 private:
  fs::path path_;
};

template <class E>
String8 messageOf(std::string_view type) {
  try {
    TypeMap::instance().typeResolved(type);
  } catch (E const& e) {
    EXPECT_TRUE(e.isKind(kUnknownTypeException));
    return e.text();
  }
  ADD_FAILURE() << "resolving " << type << " did not throw the expected exception";
  return {};
}

TEST(TypeMap, LoadsThePluginThatAMapFileNamesAndMakesItsEntities) {
  MapDir maps;
  std::string widget = ZET_TEST_WIDGET_PLUGIN;
  // Lines that must be passed over: had any been taken, loading the missing
  // library would fail.
  maps.fileIs("a.map", "# test plugins\n\n   \n"
                       "Test::Widget /nonexistent/libwidget.so extra-field\n"
                       "Test::Widget\n"
                       "Test::Widget /nonexistent/" + std::string(TypeMap::kMaxMapLineBytes, 'x') + ".so\n");
  maps.fileIs("b.map", "Test::Other libother.so\r\n\tTest::Widget\t" + widget + "  \r\n");
  maps.fileIs("c.map", "Test::Widget /nonexistent/shadowed.so\n");  // b.map comes first
  maps.fileIs("d.txt", "Test::Widget /nonexistent/not-a-map-file.so\n");

  ASSERT_EQ(TypeMap::instance().type("Test::Widget"), nullptr);
  TypeDescriptor const& type = TypeMap::instance().typeResolved("Test::Widget");
  EXPECT_EQ(type.name, "Test::Widget");
  EXPECT_EQ(TypeMap::instance().type("Test::Widget"), &type);
  EXPECT_EQ(TypeMap::instance().loadReport("Test::Widget"), "");

  Ptr<Dir> dir = globalDir()->dirIs("typeMapTest");
  Ptr<Entity> made = dir->entityIs("widget", "Test::Widget");
  EXPECT_EQ(&made->fwkType(), &type);
  EXPECT_EQ(made->fullName(), "/typeMapTest/widget");
  EXPECT_EQ(dir->entityRef("widget"), made);
  globalDir()->entryDel("typeMapTest");
}

TEST(TypeMap, TellsWhyATypeCannotBeResolved) {
  MapDir maps;
  maps.fileIs("plugins.map", "Test::Missing /nonexistent/libmissing.so\n"
                             "Test::Ghost " ZET_TEST_EMPTY_PLUGIN "\n");
  // Too large a file is not read at all, so its line naming the type is not seen.
  maps.fileIs("huge.map", "Test::Hidden " ZET_TEST_EMPTY_PLUGIN "\n" +
                              std::string(TypeMap::kMaxMapFileBytes, '#'));

  EXPECT_NE(messageOf<NoMapFileEntryException>("Test::Nowhere").view().find("'Test::Nowhere'"), std::string::npos);
  messageOf<NoMapFileEntryException>("Test::Hidden");

  String8 failed = messageOf<LibraryLoadException>("Test::Missing");
  String8 report = TypeMap::instance().loadReport("Test::Missing");
  EXPECT_NE(report.view().find("/nonexistent/libmissing.so"), std::string::npos) << report;
  EXPECT_NE(failed.view().find(report.view()), std::string::npos) << failed;

  EXPECT_NE(messageOf<NoTypeNodeException>("Test::Ghost").view().find("'Test::Ghost'"), std::string::npos);
  EXPECT_EQ(TypeMap::instance().loadReport("Test::Ghost"), "");

  // Instantiating in a directory fails the same way and leaves no entry.
  Ptr<Dir> dir = ptr_cast<Dir>(dirFactory("scratch", nullptr));
  EXPECT_THROW(dir->entityIs("ghost", "Test::Ghost"), NoTypeNodeException);
  EXPECT_EQ(dir->entry("ghost"), nullptr);

  // Once the map file is mended the same type resolves, and its failure
  // report is gone.
  maps.fileIs("plugins.map", "Test::Missing " ZET_TEST_WIDGET_PLUGIN "\n");
  EXPECT_THROW(TypeMap::instance().typeResolved("Test::Missing"), NoTypeNodeException);
  EXPECT_EQ(TypeMap::instance().loadReport("Test::Missing"), "");

  unsetenv("ZET_TYPE_MAP_PATH");
  messageOf<NoMapFileEntryException>("Test::Ghost");
}

// A plugin that registers a name already taken loads as a failure with the
// clash as reason; the process and the taken name are left as they were.
TEST(TypeMap, APluginRegisteringATakenNameFailsToLoadAndHarmsNothing) {
  MapDir maps;
  maps.fileIs("clash.map", "Test::Clash " ZET_TEST_CLASHING_PLUGIN "\n");
  TypeDescriptor const* dirType = TypeMap::instance().type("Zet::Dir");

  String8 failed = messageOf<LibraryLoadException>("Test::Clash");
  String8 report = TypeMap::instance().loadReport("Test::Clash");
  EXPECT_NE(report.view().find("type Zet::Dir is already registered"), std::string::npos) << report;
  EXPECT_NE(report.view().find(ZET_TEST_CLASHING_PLUGIN), std::string::npos) << report;
  EXPECT_NE(failed.view().find(report.view()), std::string::npos) << failed;
  EXPECT_EQ(TypeMap::instance().type("Zet::Dir"), dirType);
  EXPECT_EQ(dirFactory("still", nullptr)->fwkType().name, "Zet::Dir");
  EXPECT_TRUE(TypeMap::instance().typeIs(*dirType)) << "the same descriptor again is no clash";
}

}  // namespace
}  // namespace Zet
