// One search with the npm package "onvif", to be measured from outside: search.js SECONDS INTERFACE
// prints the address that each device answered from.
'use strict';
const { Discovery } = require('onvif');

const [seconds, device] = [Number(process.argv[2]), process.argv[3]];
const found = new Set();
const finish = () => {
  for (const ip of found) console.log(ip);
  process.exit(0);
};
// Replies that the package does not understand end it, unless they are caught here.
process.on('uncaughtException', () => {});
Discovery.on('error', () => {});
Discovery.on('device', (_, sender) => found.add(sender.address));
Discovery.probe({ timeout: seconds * 1000, device, resolve: false }, () => {});
setTimeout(finish, seconds * 1000 + 200);
