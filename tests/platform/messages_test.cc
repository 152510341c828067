#include "platform/messages.h"

#include <gtest/gtest.h>

#include <vector>

#include "platform/fault.h"

namespace tqdb::platform {
namespace {

struct Shown {
  std::string Text;
  MessageIcon Icon;
};

TEST(Messages, ReachTheSinkAsUtf8) {
  std::vector<Shown> Seen;
  SetMessageSink([&](const std::string& Text, MessageIcon Icon) { Seen.push_back({Text, Icon}); });
  ShowMessage("\xCDndice estropeado", MessageIcon::Critical);
  ShowMessage("hola");
  SetMessageSink(nullptr);  // back to stderr
  ShowMessage("to stderr", MessageIcon::Exclamation);
  ASSERT_EQ(Seen.size(), 2u);
  EXPECT_EQ(Seen[0].Text, "Índice estropeado");
  EXPECT_EQ(Seen[0].Icon, MessageIcon::Critical);
  EXPECT_EQ(Seen[1].Icon, MessageIcon::None);
}

TEST(Messages, AThrowingSinkDoesNotFailTheCaller) {
  SetMessageSink([](const std::string&, MessageIcon) { throw std::runtime_error("sink"); });
  EXPECT_NO_THROW(ShowMessage("x"));
  SetMessageSink(nullptr);
}

TEST(Faults, CarryNumberSpanishDescriptionAndSource) {
  const Fault F(53, "", "OpenFile");
  EXPECT_EQ(F.Number(), 53);
  EXPECT_EQ(F.Description(), "No se encontró el archivo");
  EXPECT_EQ(F.Source(), "OpenFile");
  EXPECT_STREQ(F.what(), "No se encontró el archivo");
  EXPECT_EQ(Fault(55000, "Archivo estropeado").Description(), "Archivo estropeado");
  EXPECT_EQ(FaultDescription(9), "El subíndice está fuera del intervalo");
  EXPECT_EQ(FaultDescription(12345), "Error definido por la aplicación o el objeto");
}

}  // namespace
}  // namespace tqdb::platform
