// SPDX-License-Identifier: Apache-2.0
module parley

go 1.19
