// varnel analytics send: what an operator's mistakes give back.
#include <gtest/gtest.h>

#include "support/VNToolRun.h"

TEST(AnalyticsTool, SendsKnownEventsWithAnObjectPayloadOnly) {
  const std::string event = " org.varnel.Varnel.MigrationCompleted";
  EXPECT_EQ(VNRunVarnel("analytics send" + event + " --payload '{\"Result\":\"target.transfer.failed\"}'").status, 0);
  EXPECT_EQ(VNRunVarnel("analytics send" + event).status, 0) << "the payload defaults to an empty object";

  VNToolRun broken = VNRunVarnel("analytics send" + event + " --payload '{\"Result\":}'");
  EXPECT_EQ(broken.status, 2);
  EXPECT_EQ(broken.err, "varnel: cannot read JSON '--payload' at byte 10: value expected\n");

  VNToolRun array = VNRunVarnel("analytics send" + event + " --payload '[]'");
  EXPECT_EQ(array.status, 2);
  EXPECT_EQ(array.err, "varnel: --payload: a JSON object is expected\n");

  EXPECT_EQ(VNRunVarnel("analytics send org.varnel.Varnel.NoSuchEvent").status, 2);
}
