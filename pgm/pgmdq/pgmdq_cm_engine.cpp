// The engine dialog adds nothing; its unit carries its meta-object.
#include "pgmdq_msgs.h"

#include "pgmdq_cm_engine.h"
