#include "platform/messages.h"

#include <gtest/gtest.h>

#include <vector>

#include "platform/fault.h"

namespace tqdb::platform {
namespace {

TEST(Messages, ReachTheSinkAsUtf8AndAThrowingSinkIsHarmless) {
  std::vector<std::pair<std::string, MessageIcon>> Seen;
  SetMessageSink([&](const std::string& Text, MessageIcon Icon) { Seen.emplace_back(Text, Icon); });
  ShowMessage("\xCDndice estropeado", MessageIcon::Critical);
  ShowMessage("hola");
  ASSERT_EQ(Seen.size(), 2u);
  EXPECT_EQ(Seen[0], std::make_pair(std::string("Índice estropeado"), MessageIcon::Critical));
  EXPECT_EQ(Seen[1].second, MessageIcon::None);
  SetMessageSink([](const std::string&, MessageIcon) { throw std::runtime_error("sink"); });
  EXPECT_NO_THROW(ShowMessage("x"));
  SetMessageSink(nullptr);  // back to stderr
  EXPECT_NO_THROW(ShowMessage("to stderr", MessageIcon::Exclamation));
}

TEST(Faults, CarrySpanishDescriptions) {
  const Fault F(53, "", "OpenFile");
  EXPECT_EQ(F.Description(), "No se encontró el archivo");
  EXPECT_STREQ(F.what(), "No se encontró el archivo");
  EXPECT_EQ(Fault(55000, "Archivo estropeado").Description(), "Archivo estropeado");
  EXPECT_EQ(FaultDescription(9), "El subíndice está fuera del intervalo");
  EXPECT_EQ(FaultDescription(12345), "Error definido por la aplicación o el objeto");
}

}  // namespace
}  // namespace tqdb::platform
