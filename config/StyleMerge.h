// Applies a diversity document's rules to a style document.
#pragma once

#include <tinyxml.h>

#include "config/SysConfig.h"

#define SENSOR_MERGE_STYLE_FILE "/tmp/merge_style.xml"

// Replaces *uiStyle (realloc) by the merged document's text; 0 always.
SENSOR_API int mergeStyle(ModuleConfig* module, char** uiStyle, char* styleDiversity);
// "Modify", "AddAfter" or "Delete" on the tab whose "key" is tabKey; 0 always.
SENSOR_API int updateStyleTab(TiXmlDocument* docStyle, const char* operation, const char* tabKey,
                              const TiXmlElement* content);
