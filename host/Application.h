#pragma once

// The application library: jobs, job types, modules and settings.

#include "host/Foundation.h"
#include "host/application/Application.h"
#include "host/application/Constants.h"
#include "host/application/Expansion.h"
#include "host/application/FrameRange.h"
#include "host/application/Job.h"
#include "host/application/JobFactory.h"
#include "host/application/JobTypeInfo.h"
#include "host/application/Module.h"
#include "host/application/ParameterInfo.h"
#include "host/application/SmartHandle.h"
#include "host/application/TrovikObject.h"
#include "host/application/VersionOrder.h"
#include "host/application/jobs/ProcessJob.h"
#include "host/application/jobs/RenderJob.h"
