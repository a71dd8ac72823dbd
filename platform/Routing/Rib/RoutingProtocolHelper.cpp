#include "platform/Routing/Rib/RoutingProtocolHelper.h"

#include "platform/Routing/AnswerOverride.h"

namespace Routing::Rib {

namespace {
AnswerOverride<RoutingProtocol>& mribOverride() {
  static AnswerOverride<RoutingProtocol> answers;
  return answers;
}
}  // namespace

bool RoutingProtocolHelper::mribProtocol(RoutingProtocol rp) {
  return mribOverride().answer(rp, rp == staticConfig);
}

void RoutingProtocolHelper::mribProtocolIs(RoutingProtocol rp, bool mrib) {
  mribOverride().answerIs(rp, mrib);
}

void RoutingProtocolHelper::mribProtocolReset() { mribOverride().reset(); }

}  // namespace Routing::Rib
