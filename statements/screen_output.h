// Screen output statements whose work reaches past the statement itself.
#pragma once

namespace tav {

class Parser;

// At the end of a section: each REFRESH whose field had no ACCEPT when it was compiled is looked
// up again in the section's final ACCEPT chain; one still missing is an error naming the field.
void resolve_refreshes(Parser& p);

}  // namespace tav
