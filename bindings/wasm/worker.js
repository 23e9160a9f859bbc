// SPDX-License-Identifier: Apache-2.0
// The engine in a browser's worker.
import { serve } from "./engine.js";

onmessage = ({ data }) => serve(data, (message, transfer = []) => postMessage(message, transfer));
