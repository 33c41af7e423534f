// The test frame adds nothing; its unit carries its meta-object.
#include "pgmdq_msgs.h"

#include "pgmdq_test.h"
