// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXBundle.h>
#include <TarvixUpdate/TXError.h>
#include <TarvixUpdate/TXLog.h>
#include <TarvixUpdate/TXNotificationCenter.h>
#include <TarvixUpdate/TXRateLimiter.h>
#include <TarvixUpdate/TXStandardUpdateController.h>
#include <TarvixUpdate/TXUpdate.h>
#include <TarvixUpdate/TXUpdateAppMover.h>
#include <TarvixUpdate/TXUpdateFeed.h>
#include <TarvixUpdate/TXUpdateHost.h>
#include <TarvixUpdate/TXUpdateItem.h>
#include <TarvixUpdate/TXUpdatePost.h>
#include <TarvixUpdate/TXUpdateSettings.h>
#include <TarvixUpdate/TXUpdateSystemProfile.h>
#include <TarvixUpdate/TXUpdateTrack.h>
#include <TarvixUpdate/TXUpdater.h>
#include <TarvixUpdate/TXVersionComparison.h>
#include <TarvixUpdate/TXVersionNumber.h>
