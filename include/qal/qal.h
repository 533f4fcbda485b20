/* Everything a compiler writer needs to call libqal. */
#ifndef QAL_QAL_H
#define QAL_QAL_H

#include "qal/abi.h"
#include "qal/connect.h"
#include "qal/convert.h"
#include "qal/diagnostics.h"
#include "qal/errors.h"
#include "qal/format.h"
#include "qal/formatted.h"
#include "qal/listed.h"
#include "qal/location.h"
#include "qal/program.h"
#include "qal/quad.h"
#include "qal/statement.h"
#include "qal/unformatted.h"
#include "qal/unit.h"

#endif
