// Against catalogues that the platform's gencat made.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "catalogue.h"
#include "err_class.h"
#include "msg.h"
#include "temp_dir.h"

namespace qvr {
namespace {

namespace fs = std::filesystem;

class catalogues : public testing::Test {
 protected:
  void SetUp() override {
    setenv("QVRCATALOGDIR", directory_.path().c_str(), 1);
    add("de_DE", "vaultlin.cat",
        "$set 1\n1 QVRYOLGMT:vaultlin:\n2 QVRSETCOUNT:10000:\n4 $Id: vaultlin.msg 1.7 \n"
        "347 Fehler bei der Anmeldung\n"
        "900 \"Auf %2$s gibt es %1$s nicht: %3$s\\n\"\n"
        "901 innen %s\n902 drei %s %s %s\n903 Ziel %%\n"
        "904 Zahl %d\n905 50 % davon: %d\n906 nur %s\n"
        "$set 2\n1 zehntausendeins\n"
        "$set 15\n4307 Nur %d Mal -A.\n");
    add("fr_FR.UTF-8", "vaultlin.cat",
        "$set 1\n1 QVRYOLGMT:vaultlin:\n2 QVRSETCOUNT:500:\n$set 2\n400 neuf cents\n");
    add("it_IT", "vaultlin.cat", "$set 1\n900 senza firma\n");
    fs::create_directory(directory_.file("es_ES"));
    catalogue_rescan();
  }
  void TearDown() override {
    unsetenv("QVRCATALOGDIR");
    unsetenv("QVRCATALOGNAME");
    catalogue_rescan();
  }
  void add(const std::string &locale, const std::string &file, const std::string &text) {
    fs::create_directories(directory_.file(locale));
    std::string source = directory_.write("x.msg", "$ codeset=UTF-8\n$quote \"\n" + text);
    std::string command = "gencat -o " + directory_.file(locale + "/" + file) + " " + source;
    ASSERT_EQ(std::system(command.c_str()), 0);
  }
  temp_dir directory_;
};

TEST_F(catalogues, look_up_by_id_and_locale) {
  struct {
    int line;
    std::int32_t id;
    const char *locale, *wanted;
  } rows[] = {{__LINE__, 347, "de_DE", "Fehler bei der Anmeldung"},
              {__LINE__, 347, "de_DE.UTF-8", "Fehler bei der Anmeldung"},
              {__LINE__, 347, "de_DE.ISO8859-1", "Fehler bei der Anmeldung"},
              {__LINE__, 10001, "de_DE", "zehntausendeins"},
              {__LINE__, 144307, "de_DE", "Nur %d Mal -A."},
              {__LINE__, 346, "de_DE", "default"},
              {__LINE__, 0, "de_DE", "default"},
              {__LINE__, -5, "de_DE", "default"},
              {__LINE__, 900, "fr_FR", "neuf cents"},
              {__LINE__, 900, "fr_FR.utf8", "neuf cents"},
              {__LINE__, 900, "it_IT", "default"},
              {__LINE__, 347, "es_ES", "default"},
              {__LINE__, 347, "xx_XX", "default"},
              {__LINE__, 347, "en", "default"},
              {__LINE__, 347, "", "default"},
              {__LINE__, 347, "en_us.UTF-8", "default"},
              {__LINE__, 347, "British ENGLISH", "default"},
              {__LINE__, 347, nullptr, "default"}};
  for (const auto &r : rows) {
    SCOPED_TRACE(r.line);
    errno = 77;
    EXPECT_STREQ(catalog_lookup(r.id, r.locale, "default"), r.wanted);
    EXPECT_EQ(errno, 77);
  }
}

TEST_F(catalogues, header_messages) {
  catalogue_header_t header =
      catalogue_parse_header("QVRYOLGMT:abc:", "QVRSETCOUNT:0:", "$Id: vaultlin.msg 1.7 ");
  EXPECT_EQ(header.set_size, 10000);
  EXPECT_EQ(header.version, "1.7");
  EXPECT_EQ(catalogue_place(10000, 10000).set, 1);
  EXPECT_EQ(catalogue_place(10000, 10000).message, 10000);
}

TEST_F(catalogues, translated_formats_reorder_and_nest) {
  const char *english = "No %s on %s: %s\n";
  errobj_t *inner = err_create(901, 3000, "inner %s", {{12, "venus"}});
  EXPECT_STREQ(msg_text(900, "de_DE", english, {{22, "vol"}, {12, "mars"}, msg_pair_t(inner)}),
               "Auf mars gibt es vol nicht: innen venus\n");
  // Stored, the inner message keeps its English and is translated with the outer one.
  errobj_t *outer = err_create(900, 3000, english, {{22, "vol"}, {12, "mars"}, msg_pair_t(inner)});
  EXPECT_EQ(outer->text, "No vol on mars: inner venus\n");
  EXPECT_STREQ(msg_render("de_DE", outer->message), "Auf mars gibt es vol nicht: innen venus\n");
  EXPECT_STREQ(msg_render("xx", outer->message), "No vol on mars: inner venus\n");
  EXPECT_STREQ(msg_render("de_DE", err_from_table(2, 7)->message), "Fehler bei der Anmeldung");
  // Without arguments a format stands as it is; with more conversions than values it is not used.
  EXPECT_STREQ(msg_render("de_DE", strtxt_t{903, "target %%", {}}), "Ziel %%");
  EXPECT_STREQ(msg_text(903, "de_DE", "target %%"), "Ziel %");
  EXPECT_STREQ(msg_text(902, "de_DE", "two %s %s", {{0, "a"}, {0, "b"}}), "two a b");
  EXPECT_STREQ(msg_render("de_DE", strtxt_t{902, "none", {}}), "none");
  // Nor is one that makes a number of a text, or that is no format.
  EXPECT_STREQ(msg_text(904, "de_DE", "text %s", {{12, "mars"}}), "text mars");
  EXPECT_STREQ(msg_text(904, "de_DE", "number %lu", {{2, "7"}}), "Zahl 7");
  EXPECT_STREQ(msg_text(905, "de_DE", "half: %s", {{2, "7"}}), "half: 7");
  EXPECT_STREQ(msg_text(906, "de_DE", "only %d", {{1, "007"}}), "nur 007");
  EXPECT_STREQ(msg_render("de_DE", strtxt_t{0, "No %s", {{0, "x"}}}), "No x");
}

TEST_F(catalogues, other_directory_and_file_names) {
  add("de_DE", "other.cat", "$set 1\n1 QVRYOLGMT:vaultlin:\n347 anders\n");
  setenv("QVRCATALOGNAME", "other.cat", 1);
  const char *earlier = catalogue_find(347, "de_DE", "default");
  catalogue_rescan();
  EXPECT_STREQ(catalog_lookup(347, "de_DE", "default"), "anders");
  EXPECT_STREQ(earlier, "Fehler bei der Anmeldung");
  setenv("QVRCATALOGDIR", directory_.file("missing").c_str(), 1);
  catalogue_rescan();
  EXPECT_STREQ(catalog_lookup(347, "de_DE", "default"), "default");
}

TEST_F(catalogues, shared_ring_holds_200_results_cut_to_its_buffers) {
  add("de_DE", "vaultlin.cat",
      "$set 1\n1 QVRYOLGMT:x:\n900 first\n901 " + std::string(7000, 'y') + "\n");
  catalogue_rescan();
  const char *first = catalog_lookup(900, "de_DE", "");
  for (int i = 0; i < 198; i++) catalog_lookup(901, "de_DE", "");
  EXPECT_EQ(std::string(catalog_lookup(901, "de_DE", "")).size(), 6143u);
  EXPECT_STREQ(first, "first");
  EXPECT_EQ(catalog_lookup(900, "de_DE", ""), first);
}

}  // namespace
}  // namespace qvr
