// The reduction of a message to a short text mail.

#include "tarvex/tree.h"

// Reduction is not built yet: every message is left as it is, and the result says so, so that delivery frames it as the
// fetched message that it still is.
int CPopProfile::CutAsTextmail(CString* /*mail*/, int /*textonly*/, int /*cutwhite*/, int /*htmltotext*/,
                               CString /*compress_words*/) {
    return 0;
}
