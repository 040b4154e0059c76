// movie_metadata.h - the movie's texts and file records, copied out of the engine's lists.
#pragma once

#include <vector>

#include "movie/objects/movie_info.h"

namespace tarn {

// Appends the items of a list with their data. An item without data is dropped; one that can't be
// read ends the list quietly: what was read before it is still good.
void LoadMetaData(Mp4ReadSession* session, const Mp4MetaList* list,
                  std::vector<CMetaDataInfo>* out);
void LoadMetaTypes(Mp4ReadSession* session, const Mp4MetaList* list,
                   std::vector<CMetaTypeDefinition>* out);

}  // namespace tarn
