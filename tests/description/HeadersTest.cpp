#include "description/DescriptionVocabulary.h"
#include "description/DesignDescription.h"
#include "description/DesignDescriptionWriter.h"
#include "description/ValueText.h"

static_assert(__cplusplus == 201703L, "compiled as a plug-in compiles it");
