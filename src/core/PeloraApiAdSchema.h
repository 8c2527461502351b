#pragma once

// The mapping schemas of the answer records. The records themselves are public
// (pelora/PeloraApiAd.h); how they map from JSON is the SDK's business, so their schemas are
// free functions declared here, found by the mapping through argument-dependent lookup.

#include "pelora/PeloraApiAd.h"
#include "support/PeloraYYSchema.h"

PeloraYYModelSchema plyy_schema(const PeloraRespTrackObject*);
PeloraYYModelSchema plyy_schema(const PeloraRespVideoObject*);
PeloraYYModelSchema plyy_schema(const PeloraApiAd*);
PeloraYYModelSchema plyy_schema(const PeloraRespObject*);
PeloraYYModelSchema plyy_schema(const PeloraRespData*);
