#pragma once

namespace gvx {

// The page of the status port, made by the build from page/status.html, and the policy by which a browser runs its
// script and style alone (CSP Level 3): their digests stand there. Static text.
extern const char* const kStatusPage;
extern const char* const kStatusPagePolicy;

}  // namespace gvx
