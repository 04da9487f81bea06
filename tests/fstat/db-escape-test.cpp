#include "lib/db-escape.h"

#include <gtest/gtest.h>

namespace tolven {
namespace {

TEST(DbEscape, ExpandsEachPlaceholder) {
  EXPECT_EQ(ZENTDBEscapeStringEX3("a='@ZENT:VAR' b like '@ZENT:LVAR%' c=@ZENT:INT d=@ZENT:LLINT "
                                  "@ZENT:NEVAR",
                                  "it's 5%", ustring("5%_\\'"), -7, std::int64_t{1} << 40,
                                  std::string("ORDER BY 'x'")),
            "a='it''s 5%' b like '5\\%\\_\\\\''%' c=-7 d=1099511627776 ORDER BY 'x'");
  EXPECT_EQ(ZENTDBEscapeStringEX3("'@ZENT:VAR'", static_cast<const char*>(nullptr)), "''");
  EXPECT_EQ(ZENTDBEscapeStringEX3("a@b.c @ZENT @ZENT:VARx @", "v"), "a@b.c @ZENT vx @");
  // An expanded text is not looked at again.
  EXPECT_EQ(ZENTDBEscapeStringEX3("@ZENT:VAR @ZENT:INT", "@ZENT:INT", 1), "@ZENT:INT 1");
  EXPECT_EQ(ZENTDBEscapeStringEX3("@ZENT:VAR", std::string(10000, '\'')), std::string(20000, '\''));
}

TEST(DbEscape, SurvivesWrongArguments) {
  EXPECT_EQ(ZENTDBEscapeStringEX3("@ZENT:INT, @ZENT:LLINT, '@ZENT:VAR'", "1; drop", "2", 3),
            "0, 0, '3'");
  EXPECT_EQ(ZENTDBEscapeStringEX3("@ZENT:INT '@ZENT:LVAR'"), "0 ''");
}

}  // namespace
}  // namespace tolven
