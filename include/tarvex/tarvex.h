#pragma once

// Tarvex, a mail-forwarding engine. This is all that a host includes.
//
//     CRootPath root;
//     if (!root.SetRootPath("/srv/tarvex")) ...;
//     for (;;) { Tarvex(&root); wait a while; }

#include "tarvex/plan.h"
#include "tarvex/probe.h"
#include "tarvex/tree.h"

// Starts a run, each on a worker thread of its own, for every profile that is due and not running already, and returns
// at once. A null root is ignored. Call it from the thread that owns the root, never concurrently with itself or with
// another operation of that root.
TARVEX_API void Tarvex(CRootPath* root);
