#include "QuillonMCPBridge/ExitGate.hpp"

namespace quillon::bridge {

void MCPExitGate::beginRequest() {
  std::lock_guard guard(lock_);
  replyOwed_ = true;
}

bool MCPExitGate::endRequest() {
  std::lock_guard guard(lock_);
  replyOwed_ = false;
  return endingDeferred_;
}

bool MCPExitGate::stopRequested() {
  std::lock_guard guard(lock_);
  if (replyOwed_) endingDeferred_ = true;
  return !replyOwed_;
}

}  // namespace quillon::bridge
