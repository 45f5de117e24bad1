// Discovers cameras with the npm package onvif and prints what it understood as JSON, for
// tests/lan. Usage: node probe.js DEVICE MILLISECONDS
'use strict';

const { Discovery } = require('onvif');

const [device, timeout] = process.argv.slice(2);

Discovery.on('error', () => {});  // listed below; without a listener an error would end node
// Unresolved: the client does not go on to connect to the cameras.
Discovery.probe({ device, timeout: Number(timeout), resolve: false }, (errors, answers) => {
  const cameras = answers.map(answer => {
    const match = answer.probeMatches.probeMatch;
    const service = new URL(match.XAddrs.trim().split(/\s+/)[0]);
    return {
      ip: service.hostname,
      port: Number(service.port || 80),
      endpoint: match.endpointReference.address,
    };
  });
  console.log(JSON.stringify({ errors: (errors || []).map(String), cameras }));
});
