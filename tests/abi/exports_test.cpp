// The kernel library exports exactly the ABI names of the export lists.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <string>

namespace {

std::set<std::string> exported_names(const char *library) {
  std::set<std::string> names;
  const std::string cmd = std::string("nm -D --defined-only ") + library;
  FILE *p = popen(cmd.c_str(), "r");
  if (!p) return names;
  char line[1024];
  while (std::fgets(line, sizeof line, p)) {
    std::string s(line);
    while (!s.empty() && (s.back() == '\n' || s.back() == ' ')) s.pop_back();
    const size_t sp = s.rfind(' ');
    if (sp != std::string::npos) names.insert(s.substr(sp + 1));
  }
  pclose(p);
  return names;
}

std::set<std::string> expected_names() {
  std::set<std::string> names;
  std::ifstream in(QOR_EXPORTS_FILE);
  for (std::string s; std::getline(in, s);)
    if (!s.empty()) names.insert(s);
  return names;
}

TEST(Exports, SharedLibraryExportsExactlyTheAbiNames) {
  const auto actual = exported_names(QOR_SHARED_LIBRARY);
  const auto expected = expected_names();
  ASSERT_FALSE(expected.empty());
  for (const auto &n : expected) EXPECT_TRUE(actual.count(n)) << "missing export " << n;
  for (const auto &n : actual) EXPECT_TRUE(expected.count(n)) << "unexpected export " << n;
}

TEST(Exports, ClassNumberAndServicesResolveThroughTheLoader) {
  void *h = dlopen(QOR_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(h, nullptr) << dlerror();
  auto version = reinterpret_cast<int (*)()>(dlsym(h, "dll_cpu_version"));
  ASSERT_NE(version, nullptr);
  EXPECT_EQ(version(), 5);
  EXPECT_EQ(dlsym(h, "_pexGetMode"), dlsym(h, "qor_pex_kernel_GetMode"));
  EXPECT_NE(dlsym(h, "_pexSetMode"), dlsym(h, "qor_pex_kernel_SetMode"));
  auto get_mode = reinterpret_cast<unsigned (*)()>(dlsym(h, "qor_pex_kernel_GetMode"));
  ASSERT_NE(get_mode, nullptr);
  EXPECT_NE(get_mode() & 0xF, 0u);
  dlclose(h);
}

}  // namespace
