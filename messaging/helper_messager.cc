#include "messaging/helper_messager.h"

QHVHelperMessager& QHVHelperMessager::sharedMessager() {
  // Never released: the connection may deliver events until the process ends.
  static const auto* const shared = new std::shared_ptr<QHVHelperMessager>(init());
  return **shared;
}

std::shared_ptr<QHVHelperMessager> QHVHelperMessager::init() {
  std::shared_ptr<QHVHelperMessager> messager(new QHVHelperMessager());
  messager->_client = LKSMessagerClient::initWithServiceName(QHVHelperServiceName, messager);
  return messager;
}

platform::Array QHVHelperMessager::messagerAuthorizationRightsForMessage(LKSMessagerClient&, std::int64_t message) {
  return QHVAuthorizationRightsForMessage(message);
}

bool QHVHelperMessager::requiresAuthorizationForMessage(QHVHelperMessage message) {
  return !QHVAuthorizationRightsForMessage(message).empty();
}
