import {FleetFeed} from './fleet-feed.js';

const feed = new FleetFeed();
self.onconnect = ({ports: [port]}) => feed.add(port);
