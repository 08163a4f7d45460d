#pragma once

// Three filters over Shift-JIS text, in place and in one pass. Each returns 1.

#include "tarvex/text.h"

namespace tarvex {

// Strips tags, comments and all white space of the source; a closing tag whose name begins with "p" and a closing "div"
// become a line end. Then decodes the entities, so that an escaped tag stays as visible text.
int HtmlToText(CString* html);

// Decodes character entities in a buffer; `length` becomes the length of the result. Returns 0 for a null buffer.
//   amp quot lt gt nbsp minus, by their letters in either case, whatever stands between them and the ";";
//   the apostrophe only as "apo" and a small "a" or a capital "S", so not in its common small form (B79).
// Numeric references stay as they are (B80). A decoded "&" may begin another entity (B81).
int DecodeHtmlEntities(char* buffer, unsigned* length);

// The same over the text's own buffer.
int DecodeHtmlEntitiesInText(CString* text);

// Removes white space and the listed characters (`compress` 0), or shrinks runs of them to one (any other value).
// `characters`: one-byte and double-byte characters separated by single blanks. A lead byte without its trail byte goes
// with the byte behind it, and so do bytes that are neither.
int FilterCharacters(CString* text, int compress, CString characters);

}  // namespace tarvex
