#include "authorization/error_convenience.h"

#include "errors/lks_error.h"

bool userCanceledAuthentication(const platform::ErrorRef& error) {
  std::size_t walked = 0;
  for (platform::ErrorRef current = error; current && walked < LKSErrorChainLimit;
       current = current->underlyingError(), ++walked) {
    if (current->domain == LKSAuthorizationErrorDomain &&
        current->code == LKSAuthorizationErrorUserCanceled) {
      return true;
    }
  }
  return false;
}
