// Every header of the library.
#pragma once

#include <genreg/ByteOrder.h>
#include <genreg/Cause.h>
#include <genreg/Checksum.h>
#include <genreg/Codes.h>
#include <genreg/Constants.h>
#include <genreg/GenRegBase.h>
#include <genreg/GenRegBin.h>
#include <genreg/GenRegBinVarVal.h>
#include <genreg/GenRegFile.h>
#include <genreg/GenRegInitTab.h>
#include <genreg/GenRegServices.h>
#include <genreg/GenRegText.h>
#include <genreg/GenRegVarVal.h>
#include <genreg/GlobalReg.h>
#include <genreg/GlobalRegFields.h>
#include <genreg/GlobalRegRecord.h>
#include <genreg/InstanceInfo.h>
#include <genreg/LineUtilities.h>
#include <genreg/LockStatus.h>
#include <genreg/RegistryBytes.h>
#include <genreg/ServiceInfo.h>
#include <genreg/Version.h>
#include <genreg/VersionCodes.h>
