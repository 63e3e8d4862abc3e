// The report on the system that answers the page's "ready".

#include "app/receiver_app.h"

namespace receiver {

HRESULT ReceiverApp::PostDiagnostics() {
    return E_NOTIMPL; // Not built yet.
}

} // namespace receiver
