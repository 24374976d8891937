// The built library as a client sees it, with nothing but the public header.
#include <KXData7.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>

namespace {

namespace fs = std::filesystem;
using kxdata7::Library;

// What the library says when `call` throws.
template <class Call>
std::string ErrorOf(Call call) {
  try {
    call();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "no error";
}

TEST(Client, LibraryExportsItsInterfaceAlone) {
  const std::string command = std::string("nm -D --defined-only --format=posix '") + KXDATA7_LIBRARY + "'";
  const std::unique_ptr<FILE, int (*)(FILE*)> symbols(popen(command.c_str(), "r"), pclose);
  ASSERT_TRUE(symbols);
  std::set<std::string> exported;
  for (char line[512]; std::fgets(line, sizeof line, symbols.get()) != nullptr;) {
    const std::string_view symbol(line);
    exported.emplace(symbol.substr(0, symbol.find(' ')));
  }
  const std::set<std::string> expected = {
      "DllCanUnloadNow", "DllGetClassObject", "DllRegisterServer", "DllUnregisterServer", "GetErrorInfo",
      "KXSetYieldHook",  "SetErrorInfo",      "SysAllocString",    "SysAllocStringLen",   "SysFreeString",
      "SysStringLen",    "VariantClear",      "VariantInit"};
  EXPECT_EQ(exported, expected);
}

TEST(Client, CallsTheComponentAndReadsItsErrors) {
  const auto library = Library::Load(KXDATA7_LIBRARY);
  const auto component = library.Create();
  kxdata7::Bstr error(u"as it was");
  VARIANT_BOOL result = VARIANT_FALSE;
  const auto connect = [&](const OLECHAR* to) {
    library.Check(component->ConnectToDatabase(kxdata7::Bstr(to).get(), 2, error.inout(), &result));
  };
  connect(u"Provider=SQLite;Data Source=:memory:");
  EXPECT_EQ(result, VARIANT_TRUE);
  EXPECT_EQ(error.ToUtf8(), "as it was");
  kxdata7::Variant hint;
  library.Check(component->GetNoLock(&hint));
  ASSERT_EQ(hint.vt, VT_BSTR);
  EXPECT_EQ(std::u16string(hint.bstrVal), u" with (NOLOCK)");

  LONG count = -1;
  const std::string failure = ErrorOf([&] { library.Check(component->GetMDCLogCount(&count)); });
  EXPECT_NE(failure.find("T_SFC_MDC_LOG"), std::string::npos) << failure;
  EXPECT_EQ(count, 0);
  EXPECT_EQ(library.TakeErrorText().get(), nullptr) << "told once";

  connect(u"Provider=SQLite;Data Source=/nowhere/ä/plant.db");
  EXPECT_EQ(result, VARIANT_FALSE);
  EXPECT_NE(error.ToUtf8().find("/nowhere/ä/plant.db"), std::string::npos) << error.ToUtf8();
}

TEST(Client, LibraryStaysLoadedWhileItIsInUse) {
  const auto is_loaded = [] {
    void* const handle = dlopen(KXDATA7_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr) dlclose(handle);
    return handle != nullptr;
  };
  kxdata7::ComPtr<_CKXData7Obj> component = Library::Load(KXDATA7_LIBRARY).Create();
  ASSERT_TRUE(is_loaded());
  VARIANT_BOOL connected = VARIANT_TRUE;
  EXPECT_EQ(component->IsConnected(&connected), S_OK);
  EXPECT_EQ(connected, VARIANT_FALSE);
}

TEST(Client, WrongFilesAreRefusedByName) {
  EXPECT_NE(ErrorOf([] { Library::Load("/nowhere/libKXData7.so"); }).find("/nowhere/libKXData7.so"),
            std::string::npos);
  EXPECT_NE(ErrorOf([] { Library::Load("libc.so.6"); }).find("DllGetClassObject"), std::string::npos);
}

class Registration : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/kxdata7-classes-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    folder_ = name;
    setenv("KXDATA7_CLASSES", classes().c_str(), 1);
  }
  void TearDown() override {
    unsetenv("KXDATA7_CLASSES");
    fs::remove_all(folder_);
  }
  fs::path classes() const { return folder_ / "share" / "classes"; }
  fs::path entry() const { return classes() / "{6D3DC26E-FE47-4582-BD90-5E241A8DBC8B}"; }

  fs::path folder_;
  const Library library_ = Library::Load(KXDATA7_LIBRARY);
};

TEST_F(Registration, IsWrittenFoundAndRemoved) {
  EXPECT_NE(ErrorOf([] { Library::Registered(); }).find(classes()), std::string::npos);
  library_.Register();
  library_.Register();
  std::ifstream file(entry());
  std::string text{std::istreambuf_iterator<char>(file), {}};
  EXPECT_EQ(text, std::string("ProgID=KXData7.CKXData7Obj\nLibrary=") + KXDATA7_LIBRARY + "\n");
  EXPECT_EQ(std::distance(fs::directory_iterator(classes()), {}), 1) << "no draft is left";
  EXPECT_TRUE(Library::Registered().Create());
  library_.Unregister();
  library_.Unregister();
  EXPECT_TRUE(fs::is_empty(classes()));
}

TEST_F(Registration, FailureIsExplained) {
  std::ofstream(folder_ / "share") << "a file where a folder is needed";
  const std::string error = ErrorOf([&] { library_.Register(); });
  EXPECT_NE(error.find(classes()), std::string::npos) << error;
  EXPECT_NE(error.find("Not a directory"), std::string::npos) << error;
}

TEST(Client, TextsSurviveTheWayThroughUtf16) {
  for (const std::string& text :
       {std::string(), std::string("Müller €"), std::string("😀"), std::string("a\0b", 3)}) {
    EXPECT_EQ(kxdata7::ToUtf8(kxdata7::ToOleString(text)), text);
  }
  EXPECT_EQ(kxdata7::ToOleString("a\xFF"
                                 "b\xE2\x82"),
            u"a\uFFFDb\uFFFD\uFFFD");
  EXPECT_EQ(kxdata7::ToUtf8(std::u16string{u'a', 0xD800, u'b', 0xDC00, 0xD801}), "a\uFFFDb\uFFFD\uFFFD");
}

}  // namespace
