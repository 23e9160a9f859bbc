// The engine in a browser's worker.
import { serve } from "./engine.js";

onmessage = ({ data }) => serve(data, (message, transfer = []) => postMessage(message, transfer));
