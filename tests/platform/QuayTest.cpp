// Object dumps (Quay): the child rules (null, already dumped, first dump)
// with their exact texts, line bookkeeping, and the dumps of the IP via
// configuration and the via set configuration, laid out as a root dumps
// its tables: a section title, then each table as a child.
#include <gtest/gtest.h>

#include <string>

#include "platform/Quay/DumpContext.h"
#include "platform/Routing/Rib/Brisk/ViaSet.h"
#include "platform/Routing/Rib/Ip/ViaConfig.h"
#include "platform/Routing/Rib/ViaSetConfig.h"

namespace {

using Routing::Rib::ViaKey;

TEST(Quay, ChildRulesAndLines) {
  const Kel::Ptr<const Quay::DumpContext> ctx = Quay::dumpContextFactory();
  EXPECT_EQ(ctx->line(), 1u);
  auto vias = Kel::makePtr<Routing::Rib::Ip::ViaConfig>();
  vias->rpIs(2);
  vias->viaIs(ViaKey(1, 0, 2, 1), Routing::Rib::Via(Pando::IpGenAddr::fromV4(0x0a000001)));
  const Routing::Rib::Ip::ViaConfig* none = nullptr;

  Quay::objDumpPrintf(ctx, "%*cProtocolRootSm\n", 2, ' ');
  Quay::objDumpPrintf(ctx, "%*c\nIPv4 ViaConfig\n", 4, ' ');
  Quay::ObjDumpChild(ctx, vias, 4);  // first dump, at line 4
  Quay::objDumpPrintf(ctx, "%*c\nIPv6 ViaConfig\n", 4, ' ');
  Quay::ObjDumpChild(ctx, none, 4);
  Quay::ObjDumpChild(ctx, none, 0);  // the blank of a zero width stays
  Quay::ObjDumpChild(ctx, vias.ptr(), 4);
  Quay::ObjDumpChild(ctx, vias, 0);
  EXPECT_EQ(ctx->text(),
            "  ProtocolRootSm\n"
            "    \n"
            "IPv4 ViaConfig\n"
            "    Routing::Rib::Ip::ViaConfig rib transport 1 rp 2 vias 1\n"
            "      via(1:0:2:1) 10.0.0.1\n"
            "    \n"
            "IPv6 ViaConfig\n"
            "    NULL\n"
            " NULL\n"
            "    Routing::Rib::Ip::ViaConfig dumped at line 4\n"
            "Routing::Rib::Ip::ViaConfig dumped at line 4\n");
  EXPECT_EQ(ctx->line(), 12u);
  EXPECT_EQ(ctx->dumpedAt(vias.ptr()), 4u);
}

TEST(Quay, ViaSetConfigListsItsEntriesInIdOrder) {
  const Kel::Ptr<const Quay::DumpContext> ctx = Quay::dumpContextFactory();
  auto config = Kel::makePtr<Routing::Rib::ViaSetConfig>(Routing::Rib::ViaSetConfigKey(2, 0));
  Routing::Rib::Brisk::ViaSet s;
  s.viaKeyIs(0, ViaKey(1, 0, 2, 1));
  const auto one = config->dedupConfigViaSetIs(s);
  s.viaKeyIs(1, ViaKey(1, 0, 2, 2));
  s.flagsIs(2);
  const auto two = config->dedupConfigViaSetIs(s);
  const auto empty = config->dedupConfigViaSetIs(Routing::Rib::Brisk::ViaSet());
  Quay::ObjDumpChild(ctx, config, 0);
  EXPECT_EQ(ctx->text(),
            "Routing::Rib::ViaSetConfig Value('Routing::Rib::ViaSetConfigKey', ** {'protocol': 2, "
            "'instance': 0}) viaSets 3\n"
            "  1 flags 0x0: via(1:0:2:1)\n"
            "  2 flags 0x2: via(1:0:2:1), via(1:0:2:2)\n"
            "  3 flags 0x0\n");
}

}  // namespace
