// The error-chain test that the authorization manager's callers use to tell a
// cancelled authentication apart from other failures.
#pragma once

#include "platform/plist/value.h"

// True when the error, or one of the errors beneath it (through
// NSUnderlyingErrorKey, at most LKSErrorChainLimit deep), is
// LKSAuthorizationErrorUserCanceled of LKSAuthorizationErrorDomain; false for a
// null error.
bool userCanceledAuthentication(const platform::ErrorRef& error);
