// Asks the service at URL for a function with the browser's client and prints the reply's "data".
import {WebSocket} from 'ws';
import {Quorvel} from '../../client/quorvel.js';

const [url, fid] = process.argv.slice(2);
const client = new Quorvel({url, WebSocket});
console.log(JSON.stringify((await client.call(fid)).data));
client.close();
