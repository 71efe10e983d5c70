/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
#ifndef ZAMC_ZAMC_H
#define ZAMC_ZAMC_H

/**
 * @file
 * All of the library.
 */

#include <zamc/attributes.h>
#include <zamc/client.h>
#include <zamc/connector.h>
#include <zamc/dlist.h>
#include <zamc/format.h>
#include <zamc/hash.h>
#include <zamc/job.h>
#include <zamc/listener.h>
#include <zamc/logger.h>
#include <zamc/mem.h>
#include <zamc/message.h>
#include <zamc/path.h>
#include <zamc/proactor.h>
#include <zamc/ptrmap.h>
#include <zamc/sock_wrap.h>
#include <zamc/suber.h>
#include <zamc/utils.h>
#include <zamc/vector.h>
#include <zamc/yang_module.h>
#include <zamc/yang_tree_data.h>
#include <zamc/yang_wrap.h>

#endif
