#pragma once

// The mapping schemas of the answer records. The records themselves are public
// (pelora/PeloraApiAd.h); how they map from JSON is the SDK's business, so their schemas are
// free functions declared here, found by the mapping through argument-dependent lookup.

#include "pelora/PeloraApiAd.h"
#include "support/PeloraYYSchema.h"

_PeloraYYModelSchema plyy_schema(const PeloraRespTrackObject*);
_PeloraYYModelSchema plyy_schema(const PeloraRespVideoObject*);
_PeloraYYModelSchema plyy_schema(const PeloraApiAd*);
_PeloraYYModelSchema plyy_schema(const PeloraRespObject*);
_PeloraYYModelSchema plyy_schema(const PeloraRespData*);
