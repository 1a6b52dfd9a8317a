// getDataList is a template in data_list.h, made once per record type.
#include "capture/data_list.h"
