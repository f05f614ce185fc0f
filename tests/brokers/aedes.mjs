// A small MQTT broker in JavaScript, to start from: aedes keeps everything in memory.
// usage: node aedes.mjs PORT
import { createServer } from 'node:net'
import aedes from 'aedes'

const broker = aedes()
// Without noDelay a QoS 1 round trip costs tens of milliseconds.
createServer({ noDelay: true }, broker.handle).listen(Number(process.argv[2]), '127.0.0.1')
