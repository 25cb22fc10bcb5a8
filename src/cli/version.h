#pragma once

#define VELTCHECK_NAME "veltcheck"
#define VELTCHECK_VERSION "1.1.0.205"
