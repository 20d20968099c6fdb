/**
 * @file
 * Zenbor.h: the whole interface of the Zenbor portability runtime.
 */
#ifndef ZENBOR_ZENBOR_H
#define ZENBOR_ZENBOR_H

#include "ZBVersion.h"
#include "ZBBase.h"
#include "ZBError.h"
#include "ZBAlloc.h"
#include "ZBBacktrace.h"
#include "ZBBuffer.h"
#include "ZBCrashReport.h"
#include "ZBEnvironment.h"
#include "ZBFile.h"
#include "ZBFileDescriptor.h"
#include "ZBInitializer.h"
#include "ZBLibrary.h"
#include "ZBLock.h"
#include "ZBLog.h"
#include "ZBOption.h"
#include "ZBPath.h"
#include "ZBPrint.h"
#include "ZBProcess.h"
#include "ZBSetJmp.h"
#include "ZBSocket.h"
#include "ZBSocketAddress.h"
#include "ZBString.h"
#include "ZBSystem.h"
#include "ZBThread.h"
#include "ZBTime.h"
#include "ZBTimeZone.h"
#include "ZBTrace.h"
#include "ZBVirtual.h"
#include "qprintf.h"

#endif /* ZENBOR_ZENBOR_H */
