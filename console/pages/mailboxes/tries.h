#pragma once

// What was typed and tried before it is saved: on the page of the job, and back in the form that it was typed into.

#include "console/pages/fields.h"

namespace tarvex::console {

// ---- on the page of the job

// The text mail in a frame of the size of a phone's screen, and what is to be said of it. Nothing without one.
Html Preview(const Json& answer);

// Save it, or go back to the form. Nothing for a job that has tried nothing.
Html AfterTry(const Viewer& viewer, const Json& answer);

Asked AskSaveTried(const HttpRequest& request);
HttpResponse AfterSaveTried(const HttpRequest& request, const Json& answer);

// ---- in the form

// Puts the job, whose draft the form goes on with, into a question; for a page it stands in the path's query.
void AddDraft(const HttpRequest& request, Json& question);

// What was typed, in the place of what is set.
void PutDraft(const Json& answer, Fields& values);

// The field that goes on with it, and a line that says so. Nothing where there is none.
Html DraftInForm(const HttpRequest& request, const Json& answer);

}  // namespace tarvex::console
