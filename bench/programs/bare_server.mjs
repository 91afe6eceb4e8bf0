// The least that an observer could be: answers every request with a status that says nothing.
import { createServer } from "node:http";

const status = JSON.stringify({ running: true, chunkIndex: 0 });
const server = createServer({ keepAliveTimeout: 30_000 }, (request, response) => {
  request.resume();
  response.setHeader("Content-Type", "application/json");
  response.end(status);
});
server.listen(Number(process.argv[2]), "127.0.0.1", () => console.log("listening"));
